#!/usr/bin/env bash
# Builds the Debian packages, lints them, boots a clean Debian in a container without a network, installs them there, and
# tries the daemon under its service file: packaging/booted.py. Needs root. The clean Debian is kept for the next time, in
# ~/.cache/upnpvelorn-packaging; the packages are there too.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh

folder=${XDG_CACHE_HOME:-$HOME/.cache}/upnpvelorn-packaging
clean=$folder/clean
booted=$folder/booted
tools=(build-essential debhelper debootstrap dpkg-dev fakeroot lintian man-db mandoc systemd-container)
inside=(systemd-sysv dbus iproute2 procps python3 python3-dbus python3-gi)

check_manual() {
    local page
    say "Checking the manual pages"
    for page in man/*; do
        mandoc -T lint -W warning "$page"
        test -z "$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)"
    done
}

build_packages() {
    say "Building the packages"
    rm -rf "$folder/source"
    mkdir -p "$folder/source/upnpvelorn"
    rm -f "$folder"/source/*.*
    git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$folder/source/upnpvelorn"
    (cd "$folder/source/upnpvelorn" && dpkg-buildpackage -us -uc) >"$folder/build.log" 2>&1 \
        || { tail -n 30 "$folder/build.log"; return 1; }
    (cd "$folder/source" && ls ./*.deb ./*.dsc)
    say "Lint"
    lintian --allow-root --info --pedantic --fail-on error,warning "$folder"/source/*.changes
}

make_clean_root() {
    if [ ! -e "$clean/complete" ]; then
        say "Making a clean Debian"
        rm -rf "$clean"
        debootstrap --variant=minbase --include="$(IFS=,; echo "${inside[*]}")" bookworm "$clean" >"$folder/debootstrap.log"
        touch "$clean/complete"
    fi
    # The trial has no network, so what the package needs has to be there before.
    chroot "$clean" apt-get -y --no-install-recommends satisfy \
        "$(dpkg-deb -f "$folder"/source/upnpvelorn_*.deb Depends)" >"$folder/apt.log" 2>&1 || { cat "$folder/apt.log"; return 1; }
}

prepare_root() {
    rm -rf "$booted"
    cp -a --reflink=auto "$clean" "$booted"
    mkdir -p "$booted/srv/trial"
    cp -r simdevice packaging "$folder"/source/upnpvelorn_*.deb "$folder"/source/upnpvelorn-examples_*.deb \
        "$folder"/source/upnpvelorn-tools_*.deb "$booted/srv/trial/"
    cat >"$booted/etc/systemd/system/trial.service" <<'UNIT'
[Unit]
After=multi-user.target
[Service]
Type=oneshot
ExecStart=-/bin/sh -c 'exec /usr/bin/python3 /srv/trial/packaging/booted.py /srv/trial/*.deb'
ExecStart=/bin/systemctl poweroff --no-block
TimeoutStartSec=180
StandardOutput=file:/trial.log
StandardError=file:/trial.log
UNIT
    mkdir -p "$booted/etc/systemd/system/default.target.wants"
    ln -s ../trial.service "$booted/etc/systemd/system/default.target.wants/trial.service"
}

# systemd-nspawn wants the unified control groups, which it gets in a mount namespace of its own.
boot() {
    say "Booting it with the packages"
    unshare --mount setsid sh -c '
        if [ "$(stat -f -c %T /sys/fs/cgroup)" != cgroup2fs ]; then
            umount -R /sys/fs/cgroup 2>/dev/null || :
            mount -t cgroup2 none /sys/fs/cgroup
        fi
        exec timeout 240 systemd-nspawn --quiet --directory="$1" --machine=upnpvelorn-trial --private-network \
            --register=no --keep-unit --console=read-only --boot' sh "$booted" </dev/null >"$folder/boot.log" 2>&1 || :
    cat "$booted/trial.log"
    grep -qx "Everything is as it should be." "$booted/trial.log"
}

install_packages "${build_packages[@]}" "${tools[@]}"
check_manual
build_packages
make_clean_root
prepare_root
boot
