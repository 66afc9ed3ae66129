#!/bin/bash
# in_root.sh BUILD bare|booted : runs bare.sh or booted.sh, the life of the Debian package, in a root
# that holds nothing but the base system, or that and a systemd which has started it. The root is
# made once; what packages are wanted besides waits there, so that no later run needs a network.
set -euo pipefail

here=$(realpath "$(dirname "$0")")
kind=$2
cd "$1"
packages=(packages/kestrine_*.deb)

skip() {
    echo "SKIPPED: $*"
    exit 77
}
if ((EUID != 0)) || ! unshare --mount --pid --net --fork true; then
    skip "a root of its own needs root, and the right to mount"
fi

# Made with what this machine asks for packages of its own release.
source /etc/os-release
key=$(dpkg-deb -f "${packages[0]}" Depends | md5sum | cut -c 1-8)
base=$PWD/bare-root-$VERSION_CODENAME-$key
make_base() {
    local mirror making
    mirror=$(apt-get indextargets --format '$(REPO_URI)' "Codename: $VERSION_CODENAME" \
        "Label: Debian" | head -n 1)
    making=$(mktemp -d)
    apt-config dump | grep -iE '^Acquire::(https?|retries|check)' >"$making/apt.conf" || true
    mmdebstrap --quiet --mode=root --variant=minbase --aptopt="$making/apt.conf" \
        --skip=cleanup/apt --customize-hook="copy-in ${packages[0]} /" \
        --customize-hook='chroot "$1" sh -c "apt-get -qqy install --no-install-recommends \
            --download-only /*.deb systemd systemd-sysv && rm /*.deb" >/dev/null' \
        "$VERSION_CODENAME" "$base.new.tar" ${mirror:+"$mirror"}
    rm -r "$making"
    mv "$base.new.tar" "$base.tar"
}
exec {lock}>"$base.lock"
flock "$lock"
[[ -e $base.tar ]] || make_base
exec {lock}>&-

# Beside the build, since the service wants much free space.
root=$(mktemp -d -p "$PWD" "$kind-root.XXXXXX")
trap 'rm -rf --one-file-system "$root"' EXIT
tar -C "$root" -xf "$base.tar"
mkdir "$root/packages"
cp "$here"/*.sh "${packages[@]}" "$root/packages/"

# A network of its own, too: the service's single-instance name lies in it.
chrooted() {
    unshare --mount --pid --net --fork --kill-child bash -euc '
        mount -t proc proc "$0/proc"
        mount --rbind /dev "$0/dev"
        exec chroot "$0" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 "$@"
        ' "$root" "$@"
}

if [[ $kind == bare ]]; then
    chrooted bash /packages/bare.sh
    exit
fi

chrooted env DEBIAN_FRONTEND=noninteractive apt-get -qqy install --no-install-recommends \
    systemd systemd-sysv >/dev/null 2>&1
# The only unit besides the system's own; its end is the end of all.
cat >"$root/etc/systemd/system/booted.service" <<'END'
[Service]
Type=oneshot
Environment=LC_ALL=C.UTF-8
ExecStart=/bin/sh -c "bash /packages/booted.sh >/packages/output 2>&1; echo $? >/packages/result"
ExecStopPost=/bin/systemctl poweroff --no-block
[Install]
WantedBy=multi-user.target
END
chrooted systemctl --quiet enable booted
timeout 600 systemd-nspawn --quiet --directory "$root" --register=no --keep-unit --boot \
    --private-network --console=pipe >"$root/packages/console" 2>&1 </dev/null || true
if [[ ! -e $root/packages/output ]]; then
    tail -n 5 "$root/packages/console"
    skip "no systemd can be started here"
fi
cat "$root/packages/output"
[[ $(<"$root/packages/result") == 0 ]]
