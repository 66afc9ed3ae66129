# shellcheck shell=bash disable=SC2034
# Sourced by what runs inside the root.
set -Eeuo pipefail
export DEBIAN_FRONTEND=noninteractive

home=/var/lib/kestrine
settings=/etc/kestrine/urlstat.ini

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
trap 'fail "line $LINENO: $BASH_COMMAND"' ERR

packages() {
    apt-get -qy --no-install-recommends -o Dpkg::Use-Pty=0 "$@" >/tmp/apt 2>&1 ||
        fail "apt-get $*: $(</tmp/apt)"
    ! grep -iE "warning|error" /tmp/apt || fail "apt-get $*"
}

# until_true COMMAND... : waits for it, a minute at most.
until_true() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! "$@" || return 0
        sleep 0.1
    done
    fail "waited in vain for: $*"
}

# What an administrator does after the installation, over a made-up world.
set_up() {
    mklogdata /srv/world --visits 20000 --accounts 2 --days 3 --first-date 20240229 --threads 1 \
        --totals /tmp/totals.1 >/dev/null
    sed 's#=/srv/logs#=/srv/world/data#' /usr/share/doc/kestrine/examples/mysql_path.ini \
        >/etc/kestrine/mysql_path.ini
    ln -s /srv/world/install/ml/config/syncaccount.dat /etc/kestrine/
}

append() {
    mklogdata /srv/world --append --visits 5000 --threads 1 --totals "/tmp/totals.$1" >/dev/null
}

# Every file is good, and the days hold the visits that were made, no more and no less.
counted() {
    local made found
    urlstat verify --all-accounts >/tmp/verify 2>&1 ||
        fail "urlstat verify: $(</tmp/verify)"
    made=$(awk '{ sum += $4 } END { print sum }' /tmp/totals.*)
    found=$(urlstat periods --all-accounts --format csv |
        awk -F , '$2 == "day" { sum += $5 } END { print sum }')
    [[ $made -gt 0 && $made == "$found" ]] || fail "$made visits were made, $found counted"
}

# Nothing but what is not the package's own.
purged() {
    local left
    left=$(find / -xdev \( -path /proc -o -path /dev -o -path /srv -o -path /packages \) -prune -o \
        -name '*kestrine*' -print)
    [[ -z $left ]] || fail "purging leaves $left"
}
