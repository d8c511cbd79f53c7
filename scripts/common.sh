# What the scripts share; read with `source`.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Runs a command and shows what it is doing: on a terminal its latest line, and when it fails all
# that it said; elsewhere simply what it says.
narrate() {
    if ! [ -t 1 ]; then
        "$@"
        return
    fi
    local said line columns status=0
    columns=$(stty size 2>/dev/null </dev/tty | cut -d ' ' -f 2) || true
    [ "${columns:-0}" -gt 0 ] || columns=80
    said=$(mktemp)
    "$@" 2>&1 | tee "$said" | while IFS= read -r line; do
        printf '\r\033[K%s' "${line:0:columns-1}"
    done || status=$?
    printf '\r\033[K'
    [ "$status" -eq 0 ] || cat "$said" >&2
    rm -f "$said"
    return "$status"
}

# Installs the Debian packages among the arguments that are missing: as root, or with sudo where it
# asks for no password; otherwise it names them and stops.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            echo "These Debian packages are missing: ${missing[*]}" >&2
            echo "Install them, or run this as root: apt-get install ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    narrate "${as_root[@]}" apt-get update -q
    narrate "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# The packages that a preset builds with.
packages_of() {
    echo cmake ninja-build g++ googletest python3
    case $1 in
        release) echo libbenchmark-dev ;;
        i386) echo g++-12-multilib ;;
        armhf) echo g++-arm-linux-gnueabihf qemu-user ;;
    esac
}

# Configures and builds a preset; further arguments go to the configuration.
build_preset() {
    local preset=$1
    shift
    # shellcheck disable=SC2046  # the packages are words of their own
    need_packages $(packages_of "$preset")
    cmake --preset "$preset" "$@" >/dev/null
    cmake --build --preset "$preset" -- --quiet
}
