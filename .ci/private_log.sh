# shellcheck shell=bash
# To be sourced by the commands that run programs which write into the system log.

# keep_out_of_system_log ARGUMENT...: starts this command again, with these arguments, where the
# machine's system log is out of its reach: in a mount namespace of its own, in which something that
# nobody listens at stands in the place of the log's socket. Says so where that cannot be had. To be
# called before anything else is done.
keep_out_of_system_log() {
    local socket command=(unshare --mount)
    socket=$(readlink -f /dev/log) || return 0
    [ -S "$socket" ] || return 0
    [ "$(id -u)" -eq 0 ] || command+=(--user --map-current-user --keep-caps)
    # shellcheck disable=SC2016
    command+=(sh -c 'mount --bind /dev/null "$1" && shift && exec "$@"' sh "$socket")
    if "${command[@]}" true 2>/dev/null; then
        # The powers over this namespace, which the mount needed, are nothing for what runs in it.
        if [ "$(id -u)" -ne 0 ]; then command+=(setpriv --inh-caps=-all --ambient-caps=-all); fi
        exec "${command[@]}" "$0" "$@"
    fi
    echo "Note: some lines that begin with \"SDB::\" or \"KVX\" go into this machine's system log."
}
