# shellcheck shell=bash
# shellcheck disable=SC2016,SC2034,SC2154
# What is looked at in the container, in this order; each check goes on where the last one ended. To
# be sourced.

package_checks=(
    the_package_installs_without_a_network
    the_first_pass_runs_within_two_minutes
    units_are_clean_and_locked_up
    settings_and_state_are_where_they_belong
    both_disks_are_patrolled_and_their_addresses_move
    a_memory_error_becomes_a_fault_an_event_and_a_hook
    a_replaced_part_is_well_again
    a_request_runs_for_the_time_that_padiag_ini_names
    metrics_are_off_until_they_are_wanted
    a_hold_and_a_busy_machine_stop_passes
    a_stop_leaves_no_test_program
    a_restart_goes_on_with_the_schedule
    an_upgrade_keeps_schedule_and_histories
    a_removal_stops_everything_and_a_purge_leaves_nothing
)

data=/var/lib/patrol
history=/var/log/patrol/patstat0.txt
requests=/var/log/patrol/pastat.txt
metrics=/var/lib/prometheus/node-exporter/patrol.prom

# The container's text file.
text() { inside cat "$1" 2>/dev/null || true; }

# lines FILE PATTERN: how many lines match; columns of a history may be taken as one blank apart.
lines() { text "$1" | tr -s ' ' | grep -c -- "$2" || true; }

expect_line() {
    text "$1" | tr -s ' ' | grep -q -- "$2" || fail "$1 has no line \"$2\""
}

# A key of the patrol schedule in the section of a disk.
disk_key() {
    text "$data/pat_new_sche.txt" | awk -F= -v device="$1" -v key="$2" '
        /^\[/ { delete value } { value[$1] = $2 }
        $1 == "device_name" && $2 == device { print value[key] }'
}

# One pass, now.
pass() { inside systemctl start patrol.service || fail "patrol.service failed"; }

has_result() { [ "$(lines "$history" " $1 $2 ")" -gt 0 ]; }

test_programs() {
    inside sh -c 'for p in /proc/[0-9]*; do cat $p/comm; done 2>/dev/null' |
        grep -cE '^(cputest|memtest|hddtest|patrol\.exe)$' || true
}

set_value() { # FILE SECTION KEY VALUE
    inside sed -i "/^\[$2\]/,/^\[/ s/^$3=.*/$3=$4/" "$1"
}

the_package_installs_without_a_network() {
    cp "$PACKAGE" "$work/root/patrol.deb"
    inside apt-get install -y /patrol.deb >"$work/apt.log" 2>&1 ||
        fail "apt-get: $(tail -n 20 "$work/apt.log")"
    installed=$SECONDS
    inside sed -i 's/^max_load_per_cpu=.*/max_load_per_cpu=0/' /etc/patrol/agent.conf
    [ "$(inside dpkg-query -W -f '${Depends}' patrol | tr ',' '\n' | sed 's/ (.*//; s/^ //' |
        sort | xargs)" = "libc6 libudev1" ] || fail "the package depends on more than two libraries"
}

the_first_pass_runs_within_two_minutes() {
    eventually $((120 - (SECONDS - installed))) "a pass enters a result" has_result OK cputest
    eventually 180 "the pass ends" ended patrol.service
    printf '    the first result was there %d s after the installation\n' $((SECONDS - installed))
    expect_line "$history" "Target Device: CPU,Memory,/dev/sda,/dev/sdisk/nvme0n1"
    expect_said 0 '/dev/sdisk/nvme0n1 *SN-nvme0n1' patrolctl status
}

# expect_said STATUS PATTERN COMMAND...: what the command says, and its exit status.
expect_said() {
    local wanted=$1 pattern=$2 status=0
    shift 2
    said=$(inside "$@" 2>&1) || status=$?
    [ "$status" -eq "$wanted" ] || fail "\"$*\" ended with $status, not $wanted: $said"
    grep -q -- "$pattern" <<<"$said" || fail "\"$*\" does not say \"$pattern\": $said"
}

ended() { [ "$(inside systemctl show -P ActiveState "$1")" = inactive ]; }

units_are_clean_and_locked_up() {
    local said exposure
    said=$(inside sh -c 'systemd-analyze verify --man=no /lib/systemd/system/patrol*' 2>&1)
    [ -z "$said" ] || fail "systemd-analyze verify: $said"
    exposure=$(inside systemd-analyze security --no-pager patrol.service |
        sed -n 's/.*exposure level for patrol.service: \([0-9.]*\).*/\1/p')
    printf '    exposure of patrol.service: %s\n' "$exposure"
    [ "${exposure%.*}" -lt 5 ] || fail "patrol.service is exposed: $exposure"
    [ -z "$(inside systemctl --failed --plain --no-legend | grep patrol || true)" ] ||
        fail "units have failed"
}

settings_and_state_are_where_they_belong() {
    local file
    for file in pat_env0.ini padiag_para.ini pat_nontarget.ini; do
        [ "$(inside readlink "$data/$file")" = "/etc/patrol/$file" ] || fail "$file is no link"
    done
    for file in /etc/patrol $data /var/log/patrol /run/patrol; do
        [ "$(inside stat -c %a "$file")" = 750 ] || fail "$file is not for root alone"
    done
}

both_disks_are_patrolled_and_their_addresses_move() {
    local disk before tries
    for disk in /dev/sda /dev/sdisk/nvme0n1; do
        for ((tries = 0; tries < 3; ++tries)); do
            has_result OK "hddtest $disk" || pass
        done
        expect_line "$history" " OK hddtest $disk "
        before=$(disk_key "$disk" address)
        pass
        pass
        [ "$(disk_key "$disk" address)" != "$before" ] || fail "the address of $disk stays $before"
        printf '    %s: %s, then %s\n' "$disk" "$before" "$(disk_key "$disk" address)"
    done
}

a_memory_error_becomes_a_fault_an_event_and_a_hook() {
    printf '#!/bin/sh\n{ echo "$PATROL_FAULT_ID"; cat "$PATROL_FAULT" "$1"; } >/root/hook.txt\n' |
        inside sh -c 'cat >/etc/patrol/parts.d/note; chmod +x /etc/patrol/parts.d/note'
    set_value /etc/patrol/pat_new_para.ini MEMDIAG_PARAM error ON
    pass
    pass
    expect_line "$history" " ERROR memtest Memory "
    expect_line "$data/faults/memory.json" '"kind": "Memory"'
    eventually 180 "the hook has run" inside test -s /root/hook.txt
    eventually 180 "the outbox is empty" outbox_is_empty
    expect_line /root/hook.txt '^memory$'
    expect_line /root/hook.txt '"count": 1'
    expect_line /root/hook.txt '^FRU1=Partition;0$'
    eventually 180 "the event is in the journal" journal_has E0809 3
    inside journalctl -q --no-pager -o short PATROL_EVENT=E0809 | sed 's/^/    /'
    expect_said 2 CRITICAL patrolctl check
    expect_said 0 '^Memory .*ERROR' patrolctl status
    printf '%s\n' "$said" | sed 's/^/    /'
}

a_replaced_part_is_well_again() {
    set_value /etc/patrol/pat_new_para.ini MEMDIAG_PARAM error OFF
    expect_said 0 '^memory ' patrolctl faults
    expect_said 0 '' patrolctl faults clear memory
    [ -z "$(inside sh -c "ls $data/faults/*.json" 2>/dev/null)" ] || fail "the fault is still there"
    pass
    pass
    expect_said 0 OK patrolctl check
}

metrics_are_off_until_they_are_wanted() {
    [ "$(inside systemctl is-enabled patrol-metrics.timer)" = disabled ] || fail "metrics are on"
    inside mkdir -p "${metrics%/*}"
    inside systemctl start patrol-metrics.service || fail "patrol-metrics.service failed"
    expect_line "$metrics" '^patrol_last_result{component="HDD",device="/dev/sda",serial="SN-sda"} 0$'
    [ "$(inside stat -c %a "$metrics")" = 644 ] || fail "node_exporter cannot read $metrics"
}

outbox_is_empty() { [ -z "$(inside ls $data/outbox)" ]; }

journal_has() {
    inside journalctl -q --no-pager PATROL_EVENT="$1" PRIORITY="$2" | grep -q .
}

a_request_runs_for_the_time_that_padiag_ini_names() {
    inside sed -i '/^\[time\]/,$ s/^[0-9]*$/3/' /etc/patrol/padiag.ini
    inside systemctl start patrol-request@1.service || fail "patrol-request@1.service failed"
    expect_line "$requests" " OK cputest CPU "
    expect_line "$requests" " OK memtest Memory "
    expect_line "$requests" " OK hddtest /dev/sda "
    expect_line "$requests" " OK hddtest /dev/sdisk/nvme0n1 "
    inside cmp -s /etc/patrol/padiag.ini $data/padiag.ini || fail "the request stays in padiag.ini"
    ! inside systemctl start patrol-request@7.service 2>/dev/null || fail "there is a level 7"
    inside systemctl reset-failed patrol-request@7.service
}

a_hold_and_a_busy_machine_stop_passes() {
    local before
    before=$(lines "$history" .)
    inside sh -c 'echo "the fan in slot 2 is being replaced" >/run/patrol/hold'
    pass
    [ "$(lines "$history" .)" -eq "$before" ] || fail "a pass ran in spite of a hold"
    ! inside systemctl is-failed --quiet patrol.service || fail "a hold counts as a failure"
    inside journalctl -q --no-pager -o cat -u patrol.service |
        grep -qx "Not now: hold: the fan in slot 2 is being replaced" ||
        fail "the journal does not say why no pass ran"
    expect_said 0 'the fan in slot 2 is being replaced' patrolctl status
    inside rm /run/patrol/hold
    inside sed -i 's/^max_load_per_cpu=.*/max_load_per_cpu=0.01/' /etc/patrol/agent.conf
    pass
    [ "$(lines "$history" .)" -eq "$before" ] || fail "a pass ran on a busy machine"
    inside sed -i 's/^max_load_per_cpu=.*/max_load_per_cpu=0/' /etc/patrol/agent.conf
    pass
    [ "$(lines "$history" .)" -gt "$before" ] || fail "no pass ran after the hold was gone"
}

a_stop_leaves_no_test_program() {
    # A pass whose tests take long: everything at the deepest level.
    inside sed -i 's/^lv=.*/lv=3/; s/^max=.*/max=1/' /etc/patrol/pat_new_para.ini
    stop_while_running patrol.service
    inside sed -i 's/^lv=.*/lv=0/; s/^max=.*/max=128/' /etc/patrol/pat_new_para.ini
    inside sed -i '/^\[time\]/,$ s/^[0-9]*$/300/' /etc/patrol/padiag.ini
    stop_while_running patrol-request@1.service
    expect_line "$requests" " CANCEL memtest Memory "
}

stop_while_running() {
    local unit=$1 began
    inside systemctl start --no-block "$unit"
    eventually 180 "$unit runs tests" tests_run
    began=$SECONDS
    inside systemctl stop "$unit" 2>/dev/null
    [ $((SECONDS - began)) -lt 50 ] || fail "$unit did not end in order"
    [ "$(test_programs)" -eq 0 ] || fail "test programs are left after the stop of $unit"
    ! inside journalctl -q --no-pager -u "$unit" | grep -q SIGKILL || fail "$unit had to be killed"
    inside systemctl reset-failed "$unit" 2>/dev/null || true
}

tests_run() { [ "$(test_programs)" -gt 1 ]; }

a_restart_goes_on_with_the_schedule() {
    local address results
    pass
    pass
    address=$(disk_key /dev/sda address)
    [ -n "$address" ] || fail "the schedule does not know /dev/sda"
    results=$(lines "$history" .)
    reboot_container
    [ "$(disk_key /dev/sda address)" = "$address" ] ||
        has_result_after "$results" || fail "the address of /dev/sda is lost"
    eventually 180 "a pass runs after the restart" has_result_after "$results"
    eventually 180 "the pass ends" ended patrol.service
    [ -z "$(inside systemctl --failed --plain --no-legend | grep patrol || true)" ] ||
        fail "units have failed"
}

has_result_after() { [ "$(text "$history" | tail -n "+$(($1 + 1))" | grep -c ' OK ')" -gt 0 ]; }

# The package with a higher version number.
rebuild_package() {
    local tree=$work/rebuilt
    dpkg-deb -R "$PACKAGE" "$tree"
    sed -i 's/^Version: .*/&+1/' "$tree/DEBIAN/control"
    dpkg-deb --root-owner-group -b "$tree" "$work/root/patrol-new.deb" >/dev/null
}

an_upgrade_keeps_schedule_and_histories() {
    local schedule before
    rebuild_package
    # No pass meanwhile.
    inside sh -c 'echo upgrade >/run/patrol/hold'
    schedule=$(text $data/pat_new_sche.txt | md5sum)
    before=$(text "$history" | md5sum)
    inside apt-get install -y /patrol-new.deb >"$work/apt.log" 2>&1 ||
        fail "apt-get: $(tail -n 20 "$work/apt.log")"
    [ "$(text $data/pat_new_sche.txt | md5sum)" = "$schedule" ] || fail "the schedule has changed"
    [ "$(text "$history" | md5sum)" = "$before" ] || fail "the history has changed"
    [ "$(inside systemctl is-active patrol.timer)" = active ] || fail "the timer has stopped"
    inside grep -q 'max_load_per_cpu=0$' /etc/patrol/agent.conf || fail "settings are lost"
    inside rm /run/patrol/hold
    pass
}

a_removal_stops_everything_and_a_purge_leaves_nothing() {
    local left
    inside systemctl start --no-block patrol-request@1.service
    eventually 180 "a request runs tests" tests_run
    # The administrator's own, and so not the package's to remove.
    inside rm /etc/patrol/parts.d/note
    inside apt-get remove -y patrol >"$work/apt.log" 2>&1 ||
        fail "apt-get: $(tail -n 20 "$work/apt.log")"
    [ "$(test_programs)" -eq 0 ] || fail "test programs are left after the removal"
    ! inside test -e "$metrics" || fail "metrics are told that nothing writes afresh"
    inside test -s "$history" -a -s $data/pat_new_sche.txt || fail "the removal took what was found"
    inside apt-get purge -y patrol >"$work/apt.log" 2>&1 ||
        fail "apt-get: $(tail -n 20 "$work/apt.log")"
    left=$(inside find / -xdev -iname '*patrol*' -not -path '/proc/*' -not -path '/patrol*.deb' \
        -not -path '/var/log/journal/*')
    [ -z "$left" ] || fail "left after the purge: $left"
    left=$(inside systemctl list-units --all --plain --no-legend 'patrol*' | grep -v not-found || true)
    [ -z "$left" ] || fail "units are left: $left"
}
