#!/usr/bin/env bash
#
# Goes the way of who brings the library to a device: builds the OS layer of tests/external-platform by itself,
# library and programs against it, and logs in at a real server.
#
#   external_platform.sh CMAKE SOURCE_FOLDER FOLDER TEST_SERVER [CMAKE_OPTION...]
set -euo pipefail
export LC_ALL=C
unset LD_LIBRARY_PATH

[[ $# -ge 4 ]] || { echo "external_platform: too few arguments" >&2; exit 2; }
cmake=$1
lanyard=$2
folder=$(realpath -m "$3")
test_server=$4
shift 4

fail() {
    echo "external_platform: $*" >&2
    exit 1
}

# build NAME TARGET... -- CMAKE_OPTION...
build() {
    local name=$1 targets=()
    shift
    while [[ $1 != -- ]]; do
        targets+=("$1")
        shift
    done
    shift
    {
        "$cmake" -B "$folder/$name" "$@" && "$cmake" --build "$folder/$name" -j 2 --target "${targets[@]}"
    } >"$folder/log" 2>&1 || { cat "$folder/log"; fail "$name does not build"; }
}

# The compiler's cache knows what it compiled before by its folder.
rm -rf "$folder"
mkdir -p "$folder/var"
build vendor external-platform -- -S "$lanyard/tests/external-platform" "$@"
build lanyard radauth radacct radmschap radeapd -- -S "$lanyard" -DLANYARD_TESTS=OFF \
    -DLANYARD_PLATFORM=external \
    -DLANYARD_PLATFORM_INCLUDE_DIR="$lanyard/platform/include" \
    -DLANYARD_PLATFORM_LIBRARIES="$(echo "$folder"/vendor/libexternal-platform.*)" "$@"

coproc SERVER { exec "$test_server"; }
# shellcheck disable=SC2153  # coproc sets it
server_pid=$SERVER_PID
trap 'kill "$server_pid" 2>/dev/null || true' EXIT
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
[[ -n ${at[ready]:-} ]] || fail "the server did not start"
printf 'authserver 127.0.0.1:%s:10:3:%s\nacctserver 127.0.0.1:%s:10:3:%s\n' \
    "${at[auth_port]}" "${at[secret]}" "${at[acct_port]}" "${at[secret]}" >"$folder/var/radius.conf"

# expect STATUS TEXT PROGRAM [OPTION...] USER PASSWORD
expect() {
    local expected=$1 text=$2 status=0 output
    local program=$folder/lanyard/bin/$3
    shift 3
    output=$("$program" "${@:1:$#-2}" -f "$folder/var/radius.conf" "${@: -2}" 2>&1) || status=$?
    [[ $status -eq $expected && $output == *"$text"* ]] || fail "${program##*/} $* ended with $status: $output"
}
expect 0 '"alice" RADIUS Authentication OK' radauth alice wonderland
expect 1 '"alice" RADIUS Authentication failure' radauth alice looking-glass
expect 0 '"alice" RADIUS Authentication OK' radmschap --builtin alice wonderland
echo "external_platform: logs in"
