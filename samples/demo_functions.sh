# shellcheck shell=bash
# The steps of ./demo. To be sourced; works on the agent directory that lay_out_agent makes.

heading() { printf '\n== %s\n\n' "$*"; }

say() { printf '%s\n' "$*"; }

fail() {
    printf '\nThe demo FAILED: %s\n' "$*" >&2
    exit 1
}

# Runs a command; its output is only shown when it fails.
quietly() {
    local log=$1
    shift
    "$@" >"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        return 1
    }
}

build_program() {
    local began log
    began=$(date +%s)
    say "Building in $1 ..."
    mkdir -p "$1" || fail "cannot make $1; set BUILD_DIR to a directory that can be written"
    log=$1/demo_build.log
    quietly "$log" cmake -S . -B "$1" -G Ninja || fail "the build could not be configured"
    quietly "$log" cmake --build "$1" --parallel --target patrol.exe cputest memtest hddtest ||
        fail "the build failed"
    program=$(cd "$1" && pwd)/patrol.exe
    programs=$(cd "$1" && pwd)/bin
    say "Built $("$program" version) in $(($(date +%s) - began)) s."
}

# The directory of an agent: its commands, the test programs, settings, a device configuration,
# and a sparse image file for each of its disks.
lay_out_agent() {
    place=$(cd "$1" && pwd)/demo
    agent=$place
    rm -rf "$place"
    mkdir -p "$place"/{log,temp,images}
    # Commands are run by their path in a shell, and the list of images is split at colons: under
    # a name that would not pass, the agent is reached through a link until the demo ends.
    case $place in
    *[!A-Za-z0-9/._+-]*)
        links=$(mktemp -d /tmp/patrol-demo.XXXXXX)
        agent=$links/agent
        ln -s "$place" "$agent"
        ;;
    esac
    cp -R samples/bin samples/config samples/data "$agent"
    cp "$programs"/{cputest,memtest,hddtest} "$agent/bin"

    export KVX_bin=$agent/bin KVX_data=$agent/data KVX_log=$agent/log
    export KVX_temp=$agent/temp KVX_config=$agent/config KVX_PIPE=$agent/event_pipe
    HDDTEST_IMAGES=
    local disk size
    while read -r disk size; do
        truncate -s "$size" "$agent/images/$disk"
        HDDTEST_IMAGES+=${HDDTEST_IMAGES:+:}/dev/$disk=$agent/images/$disk
    done <<'DISKS'
sda 3T
sdb 1T
sdc 16M
sdd 16M
sde 80M
sdf 1T
DISKS
    export HDDTEST_IMAGES
    # A disk test reads for ten seconds in a pass; here one is enough.
    sed -i 's/^sector$/sector -budget 1/' "$KVX_data/pat_env0.ini"
    history=$KVX_log/patstat0.txt
    schedule=$KVX_data/pat_new_sche.txt
    say "An agent's directory is laid out in $place, with image files as its disks."
}

# The agent's end of the event pipe: a process that copies what comes into a file.
start_event_reader() {
    mkfifo "$KVX_PIPE"
    # Opened for both, the pipe has no end, and a writer finds its reader at once.
    cat <>"$KVX_PIPE" >"$agent/events.txt" &
    event_reader=$!
}

# Stops that process and removes what lies outside the agent's directory.
clean_up() {
    [ -z "${event_reader:-}" ] || kill "$event_reader" 2>/dev/null || true
    [ -z "${links:-}" ] || rm -rf "$links"
}

# Runs the controller with a mode word and shows the lines that it adds to the history.
run_controller() {
    local before=0
    [ ! -f "$history" ] || before=$(wc -l <"$history")
    "$program" "$1" || fail "\"patrol.exe $1\" ended with status $?; see $place/log/pat_trc_log"
    [ -f "$history" ] || fail "\"patrol.exe $1\" has written no history"
    news=$(tail -n "+$((before + 1))" "$history")
    say "New in the history:"
    printf "%s\n" "$news" | sed "s/^/    /"
}

# One patrol pass: what is due by the schedule, the pass, and the schedule after it.
patrol_pass() {
    say "Due in this pass: $(due_components)"
    run_controller start
    show_schedule
}

# The value of a key in the schedule.
schedule_value() {
    awk -F= -v section="[$1]" -v key="$2" \
        '/^\[/ { inside = $0 == section; next } inside && $1 == key { print $2; exit }' "$schedule"
}

# What the schedule marks as due, on one line.
due_components() {
    local i count due=
    count=$(schedule_value TEST_SCHEDULE hdd_all_num)
    [ "$(schedule_value CPU_SCHEDULE cpu_next_go)" = OFF ] || due+=" CPU"
    [ "$(schedule_value MEM_SCHEDULE mem_next_go)" = OFF ] || due+=" memory"
    for ((i = 0; i < ${count:-0}; ++i)); do
        [ "$(schedule_value "HDD_SCHEDULE $i" hdd_next_go)" = OFF ] ||
            due+=" $(schedule_value "HDD_SCHEDULE $i" device_name)"
    done
    echo "${due# }"
}

show_schedule() {
    local i count device
    count=$(schedule_value TEST_SCHEDULE hdd_all_num)
    say "The schedule now:"
    printf '    %-12s %-14s %s\n' component "due next pass" "next block"
    printf '    %-12s %s\n' CPU "$(schedule_value CPU_SCHEDULE cpu_next_go)"
    printf '    %-12s %s\n' memory "$(schedule_value MEM_SCHEDULE mem_next_go)"
    for ((i = 0; i < ${count:-0}; ++i)); do
        device=$(schedule_value "HDD_SCHEDULE $i" device_name)
        printf '    %-12s %-14s %s\n' "$i $device" \
            "$(schedule_value "HDD_SCHEDULE $i" hdd_next_go)" \
            "$(schedule_value "HDD_SCHEDULE $i" address)"
    done
}

# Checks that the last run added these history lines and no others. Each is given without its
# time; blanks count as one, and what follows may be anything.
expect_history() {
    local line squeezed
    squeezed=$(tr -s ' ' <<<"$news" | cut -d' ' -f3-)
    for line in "$@"; do
        grep -qF -- "$line" <<<"$squeezed" || fail "the history has no new line \"$line\""
    done
    [ "$(wc -l <<<"$squeezed")" -eq $# ] || fail "the history has other new lines than the $# expected"
}

# Where the next test of a disk is to begin.
address_of() {
    local found
    found=$(awk -F= -v device="$1" '/^\[/ { address = "" } $1 == "address" { address = $2 }
        $1 == "device_name" && $2 == device { print address }' "$schedule")
    [ -n "$found" ] || fail "the schedule has no address of $1"
    echo $((found))
}

# Checks that it is beyond that block, or at the beginning again.
expect_beyond() {
    [ "$(address_of "$1")" -gt "$2" ] || fail "the test of $1 has not come beyond $2"
}
expect_begin() {
    [ "$(address_of "$1")" -eq 0 ] || fail "the test of $1 has not come to the end"
}

# Sets a key of the patrol test parameters.
set_parameter() {
    local file=$KVX_data/pat_new_para.ini
    sed -i "/^\[$1\]/,/^\[/ s/^$2=.*/$2=$3/" "$file"
}

# Shows the report that the part command was handed under that name in this run of the demo, and
# checks the line that names the part.
show_part_report() {
    local reports=("$KVX_data"/parts/*."$1")
    [ -f "${reports[0]}" ] || fail "the part command was not handed the report $1"
    say "The part command was handed the report $1:"
    sed 's/^/    /' "${reports[0]}"
    grep -qxF "$2" "${reports[0]}" || fail "the report $1 has no line \"$2\""
    [ ! -e "$KVX_temp/$1" ] || fail "the report $1 was left in $place/temp"
}

# Shows what came over the event pipe, and checks that these lines are among it.
expect_events() {
    local line tries
    for line in "$@"; do
        # The reader is another process and may be a moment behind.
        for ((tries = 0; tries < 100; ++tries)); do
            ! grep -qxF "$line" "$agent/events.txt" || continue 2
            sleep 0.1
        done
        fail "the agent was not sent \"$line\""
    done
    sed 's/^/    /' "$agent/events.txt"
}

# Asks for an on-request diagnosis: which kinds, the level, and for how many seconds. From here on
# the history of those diagnoses is the one that is looked at.
request_diagnosis() {
    history=$KVX_log/pastat.txt
    printf '[cpu]\n%s\n[mem]\n%s\n[hdd]\n%s\n[level]\n%s\n[time]\n%s\n' "$@" \
        >"$KVX_data/padiag.ini"
    say "The agent asks for: processors $1, memory $2, disks $3, level $4, $5 s; then reload."
    run_controller reload
}

# One on-request diagnosis.
padiag_run() {
    say "pastart:"
    run_controller pastart
}

# The block that the next level 3 test of a disk is to begin at, as the test program keeps it.
disk_progress() {
    local found
    found=$(awk -F= -v device="$1" '/^\[/ { inside = $0 == "[HDD_NEXT_LBA]"; next }
        inside && $1 == device { found = $2 } END { print found }' "$KVX_data/lba_outfile.ini")
    [ -n "$found" ] || fail "no progress of $1 is kept in $place/data/lba_outfile.ini"
    echo $((found))
}

# How far the last run's history says that a disk is, for example "3[%]".
percent_reached() { sed -n "s|.* hddtest $1 .* -> \([0-9]*\[%\]\).*|\1|p" <<<"$news"; }

# Checks from where the last run has tested a disk.
expect_progress() {
    grep -qF -- "$2 -> " <<<"$(grep " hddtest $1 " <<<"$news")" ||
        fail "the test of $1 has not begun at $2"
}

# Shows the last system-log events as the trace has them, and checks that there are so many.
show_announcements() {
    local events
    events=$(find "$KVX_log" -name 'padiag_log*' | sort -r | xargs cat |
        sed -n 's/.*\[make_eventlog_msg\] msg_body = \[\(.*\)(model.*/\1/p
            s/.*\[make_eventlog_msg\] opt_msg  = \[\(.*\)\]$/\1/p' | paste -d' ' - - | tail -n "$1")
    [ "$(wc -l <<<"$events")" -eq "$1" ] || fail "there are not $1 events in $place/log/padiag_log"
    say "Announced to the system log (switched on in common.ini):"
    sed 's/^/    /' <<<"$events"
}

show_places() {
    say "settings, schedule   $place/data"
    say "histories            $place/log/patstat0.txt, $place/log/pastat.txt"
    say "trace and logs       $place/log"
    say "part reports         $place/data/parts"
    say "events               $place/events.txt"
}
