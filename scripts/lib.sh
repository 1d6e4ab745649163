# Shared by the scripts of this folder: progress that a person can read, and the one list of packages.
# shellcheck shell=bash

set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
started=$SECONDS

# What it takes on a fresh Debian 12 or 13: to build the tool and the sandbox service ...
build_packages=(g++ cmake ninja-build rapidjson-dev libssl-dev libcpp-httplib-dev libcli11-dev libsqlite3-dev openssl
    jq)
# ... and to run every test: test libraries, a linker that is quick, names for what the sanitizers report (by which the
# thread sanitizer's list leaves out what is none), real peers, fuzzers, lint, packaging, disks to cut
# the power of, the collection for Ansible and hosts for it, a browser, a count of instructions.
test_packages=(git libgtest-dev libgmock-dev libboost-context-dev lld nginx-light curl strace clang clang-format
    clang-tidy libclang-rt-dev llvm util-linux procps dpkg-dev lintian doxygen file bash-completion groff-base e2fsprogs
    xfsprogs btrfs-progs mount valgrind python3 python3-apt ansible-core ansible-lint openssh-server openssh-client
    iproute2 chromium chromium-driver systemd)
# The other system: a compiler for it, what runs its programs here, what makes its installers
# and the manual that goes with them, and GoogleTest to be compiled for it.
windows_packages=(g++-mingw-w64-x86-64-posix wine wine64 nsis mandoc groff-base googletest)
coverage_packages=(gcovr)
bench_packages=(libbenchmark-dev libcurl4-openssl-dev libboost-dev libboost-context-dev libhttp-parser-dev
    nginx-light curl strace valgrind)

# As many jobs as processors; the tests and builds are planned for two.
jobs=$(nproc)

step() {
    local passed=$((SECONDS - started))
    printf '\n==> [%d:%02d] %s\n' $((passed / 60)) $((passed % 60)) "$*"
}

# Installs the packages of the list that are missing. Needs root, or sudo, only if one is.
install_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        echo "All packages are there."
        return
    fi
    echo "Installing: ${missing[*]}"
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Hands on what ninja says, but of the steps that it counts one for each tenth of the way. only_tenths NAME
only_tenths() {
    local line tenth shown=0
    while IFS= read -r line || [ -n "$line" ]; do
        if [[ ! $line =~ ^\[step\ ([0-9]+)/([0-9]+)\ +([0-9]+) ]]; then
            printf '%s\n' "$line"
            continue
        fi
        tenth=$((BASH_REMATCH[1] * 10 / BASH_REMATCH[2]))
        [ "$tenth" -gt "$shown" ] || continue
        shown=$tenth
        printf '[%s %3d %%  %d/%d  %d s]\n' "$1" $((tenth * 10)) "${BASH_REMATCH[@]:1:3}"
    done
}

# Configures one preset; what CMake says is shown only if it fails.
configure_preset() {
    # In a tree that had another compiler CMake forgets what the preset sets, until it is told once more.
    local log="$root/build/$1.configure.log"
    mkdir -p "$root/build"
    (cd "$root" && cmake --preset "$1" >"$log" 2>&1 && { ! grep -q 'require your cache to be deleted' "$log" ||
        cmake --preset "$1" >"$log" 2>&1; }) || { cat "$log"; return 1; }
}

# Configures and builds one preset. A terminal gets ninja's one moving line; what compilers say comes whole everywhere.
# They free as many small pieces of memory as they take; that the C library keeps more than seven of each size at hand
# for the next one takes a twentieth off their time.
build_preset() {
    local preset=$1
    local -x GLIBC_TUNABLES=${GLIBC_TUNABLES:-glibc.malloc.tcache_count=60000}
    shift
    configure_preset "$preset" || return 1
    local build=(cmake --build "$root/build/$preset" --parallel "$jobs" "$@")
    if [ -t 1 ] && [ "${TERM:-dumb}" != dumb ]; then
        NINJA_STATUS="[$preset %f/%t %es] " "${build[@]}"
    else
        NINJA_STATUS="[step %f/%t %e] " "${build[@]}" | only_tenths "$preset"
    fi
}
