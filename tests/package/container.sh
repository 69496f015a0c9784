# shellcheck shell=bash
# shellcheck disable=SC2154
# A Debian system booted in a container, with two disks made of image files. To be sourced.

declare -A suites=([12]=bookworm [13]=trixie)
work="" nspawn="" loops=()

fail() {
    printf '\nFAILED: %s\n' "$*" >&2
    [ -z "$nspawn" ] || show_state >&2 || true
    exit 1
}

show_state() {
    inside journalctl --no-pager -n 60 -o short
    inside sh -c 'cat /var/log/patrol/patstat0.txt /var/log/patrol/pastat.txt 2>/dev/null' | tail -n 20
}

trap 'fail "a command failed in line $LINENO of ${BASH_SOURCE[0]}"' ERR
trap 'remove_container' EXIT

# What the rule of the package makes of a disk, asked of the real udev; what it would link and write
# goes to file systems that only this look has.
check_udev_rule() {
    local rule=$PWD/agent/units/60-patrol.rules
    for name in "$@"; do
        [ -e "/sys/class/block/$name" ] || continue
        unshare --mount sh -c '
            rule=$1 name=$2
            mount -t tmpfs none /dev && mkdir -p /run/udev && mount -t tmpfs none /run/udev &&
                mkdir /run/udev/rules.d && cp "$rule" /run/udev/rules.d &&
                udevadm test --action=add "/sys/class/block/$name" 2>&1' sh "$rule" "$name" |
            grep -q "^DEVLINKS=.*/dev/sdisk/$name\( \|$\)" || fail "udev makes no link for $name"
        printf '    udev links /dev/sdisk/%s\n' "$name"
        return
    done
    fail "none of these disks is here to look at: $*"
}

# make_container RELEASE: lays the root out and boots it.
make_container() {
    local suite=${suites[$1]:?no Debian $1 here} tar=$cache/debian-$1.tar
    if [ ! -f "$tar" ]; then
        echo "Making a minimal Debian $1 ..."
        nice mmdebstrap --quiet --variant=minbase --include=systemd,systemd-sysv,dbus "$suite" \
            "$tar.new" && mv "$tar.new" "$tar"
    fi
    work=$(mktemp -d /tmp/agent-container.XXXXXX)
    mkdir "$work/root"
    tar -xf "$tar" -C "$work/root" --exclude=./dev/\*
    # No pass gets through one of these, so addresses move. Sparse: they take no room.
    make_disk sda 0 1T
    make_disk nvme0n1 1 1T
    mkdir -p "$work/root/etc/tmpfiles.d" "$work/root/stand-in"
    echo 'L /dev/sdisk/nvme0n1 - - - - ../nvme0n1' >"$work/root/etc/tmpfiles.d/stand-in.conf"
    # The system in the container mounts its own /sys, so this has to come after it.
    cat >"$work/root/etc/systemd/system/stand-in.service" <<'UNIT'
[Unit]
DefaultDependencies=no
Before=basic.target
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=mount --bind /stand-in /sys/block
[Install]
WantedBy=basic.target
UNIT
    mkdir "$work/root/etc/systemd/system/basic.target.wants"
    ln -s ../stand-in.service "$work/root/etc/systemd/system/basic.target.wants"
    echo patrol-test >"$work/root/etc/hostname"
    boot
}

# make_disk NAME NUMBER SIZE: an image, a loop device on it, and what sysfs says of such a disk.
make_disk() {
    local image=$work/$1.img block=$work/block/$1
    truncate -s "$3" "$image"
    loops[$2]=$(losetup --find --show --read-only "$image")
    mkdir -p "$block/device"
    echo $(($(stat -c %s "$image") / 512)) >"$block/size"
    echo 0 >"$block/removable"
    case $1 in
    sd*)
        echo "MAKER" >"$block/device/vendor"
        printf '\000\200\000\010SN-%s' "$1" >"$block/device/vpd_pg80"
        echo running >"$block/device/state"
        ;;
    *)
        echo "SN-$1" >"$block/device/serial"
        echo live >"$block/device/state"
        ;;
    esac
    echo "Disk $1" >"$block/device/model"
}

boot() {
    # Not a job of the calling terminal: the console is a file. Without this capability no process of
    # the container may lock memory, as the memory test does.
    systemd-nspawn --quiet --boot --register=no --keep-unit --private-network --console=pipe \
        --capability=CAP_IPC_LOCK \
        --machine=patrol-test --directory="$work/root" \
        --bind-ro="$work/block:/stand-in" \
        --bind="${loops[0]}:/dev/sda" --bind="${loops[1]}:/dev/nvme0n1" \
        >"$work/console" 2>&1 </dev/null &
    nspawn=$!
    eventually 180 "the container starts" running
}

leader() { pgrep -P "$nspawn" | head -n 1; }

running() {
    local state
    [ -n "$(leader)" ] || return 1
    state=$(inside systemctl is-system-running 2>/dev/null) || true
    [ "$state" = running ] || [ "$state" = degraded ]
}

# inside COMMAND...: runs it in the container.
inside() {
    nsenter --target "$(leader)" --mount --uts --ipc --net --pid --cgroup \
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C TERM=dumb "$@"
}

# eventually SECONDS SENTENCE COMMAND...: waits until the command succeeds.
eventually() {
    local limit=$1 sentence=$2 end=$((SECONDS + $1))
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || fail "not within $limit s: $sentence"
        sleep 0.5
    done
}

# Restarts the system in the container; systemd-nspawn then ends with status 133.
reboot_container() {
    local status=0
    inside systemctl reboot || true
    wait "$nspawn" || status=$?
    nspawn=""
    [ "$status" -eq 133 ] || fail "the container ended with status $status, not for a restart"
    boot
}

remove_container() {
    local loop
    if [ -n "$nspawn" ]; then
        inside systemctl poweroff >/dev/null 2>&1 || kill "$nspawn" 2>/dev/null || true
        wait "$nspawn" 2>/dev/null || true
        nspawn=""
    fi
    for loop in "${loops[@]}"; do losetup --detach "$loop" || true; done
    loops=()
    if [ -n "$work" ] && [ -z "${KEEP:-}" ]; then rm -rf --one-file-system "$work"; fi
    work=""
}
