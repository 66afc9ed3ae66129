# shellcheck shell=bash disable=SC2034
# Sourced by test.sh and demo.sh: the Debian packages that they need, and their installation.

native_packages=(g++ cmake ninja-build zlib1g-dev libdeflate-dev libcli11-dev nlohmann-json3-dev libkainjow-mustache-dev)
test_packages=(googletest python3-pytest python3-distributed jq sqlite3 tzdata)
package_packages=(dpkg-dev file lintian mmdebstrap systemd-container)
cross_packages=(clang-14 clang-format-14 clang-tidy-14 libclang-rt-14-dev g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64)

# install_missing PACKAGE... : the network is asked only when a package is really missing.
install_missing() {
    local package missing=() root=()
    for package in "$@"; do
        if [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            missing+=("$package")
        fi
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    if ((EUID != 0)); then
        root=(sudo)
    fi
    echo "installing: ${missing[*]}"
    local apt=("${root[@]}" env DEBIAN_FRONTEND=noninteractive
        apt-get -qq -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0)
    "${apt[@]}" update </dev/null
    "${apt[@]}" install -y --no-install-recommends "${missing[@]}" </dev/null >/dev/null
}
