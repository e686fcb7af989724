#!/usr/bin/env bash
# Runs the daemon beside real programs: connman with a DHCP server, control points, nmap, minissdpd, avahi.
#   scripts/neighbours.sh [OPTION OF PYTEST]...
# Those that are services are unpacked into build/neighbours/, not installed: installed, they would start on this machine and
# take its network over. They run in network and mount namespaces only, on a bus of their own. Needs root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh
case ${1-} in
-h | --help) describe scripts/neighbours.sh; exit 0 ;;
esac

services=(connman avahi-daemon minissdpd)
libraries=(libavahi-core7 libcap2 libdaemon0 libgnutls30 libglib2.0-0 libnfnetlink0 libreadline8 libxtables12)
tools=(nmap dnsmasq-base)
folder=$PWD/build/neighbours

if [ "$(id -u)" != 0 ]; then
    echo "connman works as root only. Please run: sudo $0"
    exit 1
fi

# unpack FOLDER PACKAGE...
unpack() {
    local into=$1 archives
    shift
    archives=$(mktemp -d)
    chmod 755 "$archives"
    (cd "$archives" && apt-get download -qq -o APT::Sandbox::User=root "$@")
    for archive in "$archives"/*.deb; do
        dpkg-deb --extract "$archive" "$into"
    done
    rm -r "$archives"
}

install_packages "${build_packages[@]}" "${simdevice_packages[@]}" "${run_packages[@]}" "${test_packages[@]}" \
    "${libraries[@]}" "${tools[@]}"
build release
if [ ! -x "$folder/usr/sbin/connmand" ]; then
    say "Unpacking ${services[*]}"
    mkdir -p "$folder"
    unpack "$folder" "${services[@]}"
fi
say "Testing among neighbours"
NEIGHBOURS=$folder python3 tests/daemon/run.py -v tests/neighbours "$@"
