# Shared by ./run and ./check: saying what happens, installing what is missing, configuring, building.
set -u
unset CDPATH
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$top" || exit 1
logs="$top/build/logs"
mkdir -p "$logs"

say() { printf '%s: %s\n' "$program" "$*"; }

# Ends with one plain line that says what failed and where to look.
fail() {
    printf '%s: FAILED: %s\n' "$program" "$*" >&2
    exit 1
}

# step TITLE LOG COMMAND...: runs the command with its output in a log, a dot every few seconds on a
# terminal or not, and the end of the log when it fails.
step() {
    local title=$1 log="$logs/$2.log" started=$SECONDS status
    shift 2
    printf '%s: %s ...' "$program" "$title"
    "$@" >"$log" 2>&1 </dev/null &
    local pid=$!
    trap 'kill "$pid" 2>/dev/null; exit 130' INT TERM
    while kill -0 "$pid" 2>/dev/null; do
        sleep 0.2
        (((SECONDS - started) % 10 == 9)) && { printf '.'; sleep 1; }
    done
    wait "$pid"
    status=$?
    trap - INT TERM
    printf ' %d s\n' $((SECONDS - started))
    [ "$status" -eq 0 ] && return 0
    tail -n 40 "$log" >&2
    fail "$title (status $status); the whole log is in $log"
}

# install_packages PACKAGE...: installs those that are missing, as root or through sudo.
install_packages() {
    local package missing=() as_root=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "these packages are missing: ${missing[*]}; install them, or run as root or with sudo"
        as_root=(sudo)
    fi
    say "installing what is missing: ${missing[*]}"
    step "reading the package lists" apt-update "${as_root[@]}" apt-get update
    step "installing ${#missing[@]} packages" apt-install "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# build PRESET [CMAKE OPTION...]: configures and builds a preset in build/PRESET.
build() {
    local preset=$1
    shift
    step "configuring $preset" "configure-$preset" cmake --preset "$preset" "$@"
    step "building $preset" "build-$preset" cmake --build --preset "$preset" --parallel "$(nproc)"
}
