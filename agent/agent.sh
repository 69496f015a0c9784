# What the agent's shell programs share. To be sourced; POSIX sh.
# shellcheck shell=sh

: "${KVX_data:=/var/lib/patrol}" "${KVX_log:=/var/log/patrol}" "${KVX_bin:=/usr/lib/patrol}"
: "${KVX_temp:=/var/lib/patrol/temp}" "${KVX_config:=/etc/patrol}" "${KVX_PIPE:=/run/patrol/events}"
export KVX_data KVX_log KVX_bin KVX_temp KVX_config KVX_PIPE

# setting KEY DEFAULT: the value of the last line KEY=VALUE of agent.conf.
setting() {
    value=$(sed -n "s/^$1=//p" "$KVX_config/agent.conf" 2>/dev/null | tail -n 1)
    printf '%s\n' "${value:-$2}"
}

# Whether the setting KEY (by default DEFAULT) is "yes".
is_set() { [ "$(setting "$1" "$2")" = yes ]; }

complain() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

# The lock of all that runs the controller: one run at a time.
# shellcheck disable=SC2034
run_lock=$KVX_data/run.lock
