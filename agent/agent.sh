# What the agent's shell programs share. To be sourced; POSIX sh.
# shellcheck shell=sh

: "${KVX_data:=/var/lib/patrol}" "${KVX_log:=/var/log/patrol}" "${KVX_bin:=/usr/lib/patrol}"
: "${KVX_temp:=/var/lib/patrol/temp}" "${KVX_config:=/etc/patrol}" "${KVX_PIPE:=/run/patrol/events}"
export KVX_data KVX_log KVX_bin KVX_temp KVX_config KVX_PIPE

# The controller and the rest of the same installation, wherever that is.
PATH=$PATH:${0%/*}/../../sbin:${0%/*}/../../bin

# setting KEY DEFAULT: the value of the last line KEY=VALUE of agent.conf, without the blanks (and the
# carriage return of other systems' editors) around it.
setting() {
    value=$(sed -n "s/^[[:space:]]*$1[[:space:]]*=[[:space:]]*//p" "$KVX_config/agent.conf" \
        2>/dev/null | sed -n '$ s/[[:space:]]*$//p')
    printf '%s\n' "${value:-$2}"
}

# Whether the setting KEY is "yes"; what is neither that nor "no" counts as DEFAULT.
is_set() {
    case $(setting "$1" "$2") in
    [Yy][Ee][Ss]) return 0 ;;
    [Nn][Oo]) return 1 ;;
    esac
    complain "$1 in $KVX_config/agent.conf is neither yes nor no; taking $2"
    [ "$2" = yes ]
}

complain() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

# The lock of all that runs the controller: one run at a time.
# shellcheck disable=SC2034
run_lock=$KVX_data/run.lock

# Above 1 MiB of a history the controller puts each result in the place of the one before, so neither
# gets there. To be called with the lock held.
age_histories() {
    for aged in "$KVX_log/patstat0.txt" "$KVX_log/pastat.txt"; do
        [ -f "$aged" ] && [ "$(wc -c <"$aged")" -gt 786432 ] || continue
        [ ! -f "${aged}2" ] || mv -f "${aged}2" "${aged}3"
        [ ! -f "${aged}1" ] || mv -f "${aged}1" "${aged}2"
        mv -f "$aged" "${aged}1"
    done
}
