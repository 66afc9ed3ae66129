#!/bin/bash
# Runs in a bare root: install, set up, count, upgrade, count more, remove, install again, purge.
source /packages/common.sh

wanted=/etc/systemd/system/multi-user.target.wants/kestrine.service

service=(setpriv --reuid kestrine --regid kestrine --init-groups kestrine --root "$home")

# One pass of the service, as its user and from a directory that has nothing to do with it.
pass() {
    cd /
    "${service[@]}" >/tmp/console 2>&1 &
    local pid=$!
    until_true grep -q "wait to find new data" /tmp/console
    kill -TERM "$pid"
    wait "$pid" || fail "the service: $(tail /tmp/console)"
    grep -q "exit normally" "/var/log/kestrine/kestrine$(date +%Y%m%d).txt"
}

packages install /packages/kestrine_*-1_*.deb
[[ -e $wanted ]] || fail "the service is not enabled"
[[ $(stat -c %U:%G:%a $home /var/log/kestrine | uniq) == kestrine:kestrine:750 ]]
[[ $(getent passwd kestrine) == *:$home:/usr/sbin/nologin ]]
for page in kestrine.8 urlstat.1 mklogdata.1; do
    gzip -t /usr/share/man/man*/$page.gz
done
! "${service[@]}" --check >/tmp/check || fail "nothing is set up, and --check finds nothing wrong"
grep -q "$home/mysql_path.ini" /tmp/check

set_up
"${service[@]}" --check >/tmp/check || fail "--check: $(</tmp/check)"
pass
counted
[[ -d $home/statistics && ! -e $home/memory/spill && ! -e /srv/world/data/log_data/_urlstat ]]
! runuser -u nobody -- ls $home/statistics 2>/dev/null || fail "everybody may read the statistics"

echo "; changed" >>$settings
rm $wanted # disabled by its administrator
packages install /packages/kestrine_*-2_*.deb
[[ $(dpkg-query -W -f '${Version}' kestrine) == *-2 ]]
[[ $(tail -n 1 $settings) == "; changed" && ! -e $wanted ]]
append 2
pass
counted

packages remove kestrine
[[ ! -e /usr/bin/kestrine && ! -e /usr/bin/urlstat && ! -e /usr/share/man/man8/kestrine.8.gz ]]
[[ -d $home/statistics && -e $settings && -e /etc/kestrine/mysql_path.ini ]]
packages install /packages/kestrine_*-2_*.deb
counted

packages purge kestrine
purged
