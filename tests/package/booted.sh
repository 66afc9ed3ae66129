#!/bin/bash
# Runs in the root under systemd: the unit as it is, with its sandbox, through start, stop, kill, a
# service that is stuck, an upgrade and a purge.
source /packages/common.sh
trap '(($? == 0)) || systemctl --no-pager --lines 20 status kestrine' EXIT

# property NAME : of the unit.
property() {
    systemctl show --value --property "$1" kestrine
}

passes() {
    [[ $(cat /var/log/kestrine/*.txt | grep -c "wait to find new data" || true) -ge $1 ]]
}

is_main() {
    (($(property MainPID) > 0 && $(property MainPID) != $1))
}

packages install /packages/kestrine_*-1_*.deb
systemctl is-enabled kestrine
[[ $(property ConditionResult) == no && $(property Result) == success ]]
set_up
# So that a test need not wait; the rest of the unit is as it comes.
mkdir -p /run/systemd/system/kestrine.service.d
printf '[Service]\nWatchdogSec=15\nRestartSec=0\n' >/run/systemd/system/kestrine.service.d/quick.conf
systemctl daemon-reload
systemctl start kestrine
until_true passes 1
counted
[[ $(property ActiveState) == active && -n $(property StatusText) ]]
[[ -z $(ls $home/memory) ]] || fail "the memory disk is not the service's own"

pid=$(property MainPID)
kill -KILL "$pid"
until_true is_main "$pid"
append 2
until_true passes 2
pid=$(property MainPID)
kill -STOP "$pid" # a service that is stuck
until_true is_main "$pid"
until_true passes 3
counted
[[ $(property NRestarts) == 2 ]]

pid=$(property MainPID)
packages install /packages/kestrine_*-2_*.deb
is_main "$pid" || fail "an upgrade leaves the old program running"
until_true passes 4
systemctl stop kestrine
[[ $(property Result) == success ]]
cat /var/log/kestrine/*.txt | tail -n 1 | grep -q "exit normally"
! grep -h "^ e " /var/log/kestrine/*.txt | grep -v "cannot find </_f> in" || fail "errors in the log"

systemctl start kestrine
pid=$(property MainPID)
packages purge kestrine
[[ ! -e /proc/$pid ]] || fail "the service outlives its package"
rm -r /run/systemd/system/kestrine.service.d
purged
