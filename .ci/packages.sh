# shellcheck shell=bash
# To be sourced by the commands that need packages of the system.

# ensure_packages PACKAGE...: installs those Debian packages that are missing, and says so.
# Touches no package list and needs no network when all are there. Returns non-zero, after a plain
# word, when a package cannot be had.
ensure_packages() {
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        echo "This is no Debian system; going on in the hope that these are there: $*"
        return 0
    fi
    local package missing=()
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "Missing: ${missing[*]}. Please install them as root, or install sudo." >&2
            return 1
        fi
        as_root=(sudo)
    fi
    echo "Installing what is missing: ${missing[*]}"
    local log
    log=$(mktemp) || return 1
    if ! { "${as_root[@]}" apt-get update &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        echo "The packages could not be installed: ${missing[*]}" >&2
        return 1
    fi
    rm -f "$log"
}
