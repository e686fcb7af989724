# Sourced by ./run, ./test and the commands in bench/: installs Debian packages that are missing and builds a preset.
# shellcheck shell=bash

build_packages=(g++ cmake ninja-build qtbase5-dev qtbase5-dev-tools)
simdevice_packages=(dbus iproute2 util-linux procps python3 python3-dbus python3-gi curl)
run_packages=(gupnp-tools miniupnpc)
test_packages=(git python3-pytest faketime strace libdbus-1-dev pkg-config)
bench_packages=(libbenchmark-dev libdbus-1-dev pkg-config valgrind strace binutils)
bench_library_packages=(libgssdp-1.6-dev libgupnp-1.6-dev libupnp-dev) # what bench/peers/ are built on
bench_peer_packages=(minidlna minissdpd avahi-daemon) # daemons that Debian starts when they are installed
style_packages=(clang-tidy clang-format)
armhf_packages=(g++-arm-linux-gnueabihf qemu-user-static)
arm64_packages=(g++-aarch64-linux-gnu qemu-user-static)

# describe SCRIPT: the comment at its head
describe() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$1"; }

# fail TEXT: for what is wrong with the command line or the surroundings, before anything is installed or built
fail() {
    printf '%s: %s\n' "$0" "$1" >&2
    exit 2
}

# listed TEXT...: the texts with commas between them
listed() {
    local all
    printf -v all '%s, ' "$@"
    printf '%s' "${all%, }"
}

# is_one_of TEXT TEXT...
is_one_of() {
    local wanted=$1 one
    shift
    for one in "$@"; do
        [ "$one" != "$wanted" ] || return 0
    done
    return 1
}

build_folder() { [ "$1" = release ] && echo build || echo "build-$1"; }

# require_writable PRESET...: the builds go into folders of this one
require_writable() {
    local preset folder
    for preset in "$@"; do
        folder=$(build_folder "$preset")
        [ -e "$folder" ] || folder=.
        [ -w "$folder" ] || fail "cannot write into $(cd "$folder" && pwd), where it builds. Take a copy of this folder that is yours."
    done
}

say() { printf '\n== %s\n' "$*"; }

missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' || echo "$package"
    done
}

install_packages() {
    local missing as_root=()
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing Debian packages: ${missing[*]}"
    if [ "$(id -u)" != 0 ]; then
        if ! sudo -n true 2>/dev/null && ! { [ -t 0 ] && command -v sudo >/dev/null; }; then
            echo "These packages are missing and only root can install them. Please run, as root:"
            echo "    apt-get update && apt-get install ${missing[*]}"
            exit 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

arm_machine="28 00" # as the head of an ELF file says it

# machine_of ELF-FILE
machine_of() { od -An -tx1 -j18 -N2 "$1" | xargs; }

# require_qt4_kit WHAT MACHINE: QT4_KIT has to name a Qt 4.8 for it
require_qt4_kit() {
    local libraries
    libraries=$("${QT4_KIT:-/nowhere}/bin/qmake" -query QT_INSTALL_LIBS 2>/dev/null) || true
    local core=$libraries/libQtCore.so.4
    [ -e "$core" ] || fail "$1 needs a Qt 4.8: set the environment variable QT4_KIT to its folder, the one that has bin/qmake"
    [ "$(machine_of "$core")" = "$2" ] || fail "$1 needs a Qt 4.8 for another processor than that in QT4_KIT, $QT4_KIT"
}

# prepare_cross armhf|arm64: the compiler, the emulator and the libraries of a cross build
prepare_cross() {
    local -n packages=$1_packages
    install_packages "${packages[@]}"
    say "Unpacking libraries ($1)"
    scripts/sysroot.sh "$1" "build-$1/sysroot"
}

# build PRESET [OPTION OF cmake --build]...
build() {
    local folder
    folder=$(build_folder "$1")
    say "Building ($1)"
    mkdir -p "$folder"
    (
        flock --nonblock 9 || { say "Another command builds in $folder: waiting for that"; flock 9; }
        cmake --preset "$1" >/dev/null
        # Ninja has said why it ended, or nobody reads any more: CMake need not tell of it again.
        { cmake --build --preset "$@" 2>&1 >&3 3>&- | sed '/^SIGPIPE$/d; /^CMake Error: Generator: /d' >&2; } 3>&1
    ) 9>"$folder/.lock"
}

# clang-format and clang-tidy over the product's sources, two at a time
check_style() {
    local sources headers
    install_packages "${style_packages[@]}"
    build release
    say "Checking style"
    mapfile -t sources < <(git ls-files '*.cpp' ':!tests' ':!examples' ':!bench' ':!json/jsongrammar.cpp')
    mapfile -t headers < <(git ls-files '*.h' ':!json/jsongrammar_p.h')
    clang-format --dry-run --Werror "${sources[@]}" "${headers[@]}"
    # Some of GCC's options for the linking of the release build are unknown to clang.
    printf '%s\0' "${sources[@]}" |
        xargs -0 -P "$(nproc)" -n 4 clang-tidy -p build --quiet --extra-arg=-Wno-ignored-optimization-argument 2>/dev/null
}
