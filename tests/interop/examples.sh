#!/usr/bin/env bash
#
# Compiles the examples against an installed library, by pkg-config, and runs them against the real server.
#
#   examples.sh TEST_SERVER INSTALLED_FOLDER FOLDER [PKG_CONFIG_OPTION...]
set -euo pipefail
export LC_ALL=C

[[ $# -ge 3 ]] || { echo "examples: too few arguments" >&2; exit 2; }
test_server=$1
installed=$2
folder=$3
shift 3

fail() {
    echo "examples: $*" >&2
    exit 1
}

rm -rf "$folder"
mkdir -p "$folder"
examples=$installed/share/doc/lanyard-radius/examples
read -ra flags <<<"$(PKG_CONFIG_PATH=$installed/lib/pkgconfig pkg-config --cflags --libs "$@" lanyard-radius)"
flags+=("-Wl,-rpath,$installed/lib" -pthread)
for source in "$examples"/*.c; do
    cc -std=c11 -Wall -Wextra -Werror "$source" -o "$folder/$(basename "$source" .c)" "${flags[@]}"
done
for source in "$examples"/*.cpp; do
    c++ -std=c++17 -Wall -Wextra -Werror "$source" -o "$folder/$(basename "$source" .cpp)" "${flags[@]}"
done

coproc SERVER { exec "$test_server"; }
# shellcheck disable=SC2153  # coproc sets it
pids=("$SERVER_PID")
trap 'kill "${pids[@]}" 2>/dev/null || true' EXIT
declare -A at=()
while [[ -z ${at[ready]:-} ]] && IFS='=' read -r -t 60 name value <&"${SERVER[0]}"; do
    at[$name]=$value
done
[[ -n ${at[ready]:-} ]] || fail "the server did not start"
cat >"$folder/radius.conf" <<CONF
authserver 127.0.0.1:${at[auth_port]}:10:3:${at[secret]}:examples
acctserver 127.0.0.1:${at[acct_port]}:10:3:${at[secret]}
dictionary $installed/share/lanyard-radius/radius.dict
CONF

# shows TEXT: the output has this line, as a whole; * stands for anything.
shows() {
    local line
    while IFS= read -r line; do
        # shellcheck disable=SC2053  # the expectation is a pattern on purpose
        [[ $line != $1 ]] || return 0
    done <<<"$output"
    fail "no line '$1' in: $output"
}

# runs STATUS EXAMPLE ARGUMENT...: with the configuration file as its first argument; its output is left in $output.
runs() {
    local expected=$1 status=0
    local example=$folder/$2
    shift 2
    output=$("$example" "$folder/radius.conf" "$@" 2>&1) || status=$?
    [[ $status -eq $expected ]] || fail "$example $* ended with $status: $output"
}

# awaits COMMAND...: until it succeeds, a minute at most.
awaits() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! "$@" || return 0
        sleep 0.1
    done
    return 1
}

runs 0 login alice wonderland
shows '"alice" RADIUS Authentication OK'
shows 'Reply-Message: Welcome, alice'
runs 1 login alice looking-glass
shows "127.0.0.1:${at[auth_port]}: rejected by the server (Access-Reject)"

if [[ -e $installed/lib/liblanyard-radius.so.2 ]]; then
    output=$(LD_LIBRARY_PATH=$installed/lib "$examples/login.py" "$folder/radius.conf" alice <<<wonderland)
    shows 'come in for 121 minutes (0: as long as you like)'
    ! output=$(LD_LIBRARY_PATH=$installed/lib "$examples/login.py" "$folder/radius.conf" alice 2>&1 <<<wrong) ||
        fail "login.py lets in who has a wrong password"
    shows "127.0.0.1:${at[auth_port]}: rejected by the server (Access-Reject)"
fi

printf 'alice wonderland\ncarol wrong\n' >"$folder/logins"
runs 1 many_logins "$folder/logins"
shows 'alice may come in, for 121 minutes (0: as long as they like)'
shows "carol may not come in: 127.0.0.1:${at[auth_port]}: rejected by the server (Access-Reject)"
shows '1 of 2 may come in'

# The portal. A port that somebody else has ends it, and the next one is tried.
portal_log=$folder/portal.log
for port in {20080..20180}; do
    "$folder/captive_portal" "$folder/radius.conf" "$port" >"$portal_log" 2>&1 &
    portal=$!
    until grep -q '^http' "$portal_log" || ! kill -0 "$portal" 2>/dev/null; do
        sleep 0.05
    done
    ! kill -0 "$portal" 2>/dev/null || break
done
pids+=("$portal")
kill -0 "$portal" || fail "the portal does not start: $(<"$portal_log")"

# asks FORM: leaves the page in $output.
asks() {
    exec {browser}<>"/dev/tcp/127.0.0.1/$port"
    printf 'POST / HTTP/1.1\r\ncontent-length: %s\r\n\r\n%s' "${#1}" "$1" >&"$browser"
    output=$(cat <&"$browser")
    exec {browser}>&-
}

# told TEXT: the portal says so, at last.
told() {
    awaits grep -qx "$1" "$portal_log" || fail "the portal does not say '$1': $(<"$portal_log")"
}

asks ''
shows '<p></p><form method=post>*'
for form in 'user=erin' 'user=erin&password=' 'user=erin%00&password=x' 'user=erin%0a&password=x' \
    "user=$(printf '%065d' 1)&password=x" 'user=%'; do
    asks "$form"
    shows '<p>Name and password, please.</p><form*'
done
asks 'user=erin&password=a%26b+c%25'
shows '<p>Wrong name or password.</p><form*'
[[ $(grep -c '"erin"' "${at[folder]}/access-requests") -eq 1 ]] || fail "a form that is refused reaches the server"
grep -q 'User-Password = "a&b c%"' "${at[folder]}/access-requests" || fail "a password is not as it was typed"
asks 'password=through%2Dthe%2dglass&user=erin'
shows '<p>You are online.</p>'
told '127.0.0.1 comes in'
told '127.0.0.1 goes out'
asks ''
shows '<p></p><form*'

# The user stays for more than a second.
runs 0 accounting carol looking-glass \
    < <(awaits grep -qs 'Acct-Status-Type = Start' "${at[folder]}/accounting" && sleep 1.1 && echo online)
shows 'Start: the server has it'
shows 'Interim-Update: the server has it'
shows 'Stop: the server has it'
output=$(sed -n '/Stop/,$p' "${at[folder]}/accounting")
for line in 'Acct-Status-Type = Stop' 'Framed-IP-Address = 192.0.2.23' 'Acct-Session-Time = [1-9]*' \
    'Acct-Input-Octets = 1000000000' 'Acct-Input-Gigawords = 0' 'Acct-Output-Octets = 705032704' \
    'Acct-Output-Gigawords = 1' 'Acct-Terminate-Cause = User-Request'; do
    shows $'\t'"$line"
done
[[ $(grep -c 'Class = 0x0102fe' "${at[folder]}/accounting") -eq 3 ]] || fail "a record has no Class"
[[ $(grep 'Acct-Session-Id' "${at[folder]}/accounting" | sort -u | wc -l) -eq 1 ]] || fail "a record has another id"
runs 1 accounting carol wrong
shows 'carol may not come in'

runs 0 hooks carol looking-glass guests
shows 'carol may come in'
grep -q 'Calling-Station-Id = "02-00-5E-10-00-01"' "${at[folder]}/access-requests" || fail "the pack hook did nothing"
runs 1 hooks carol looking-glass staff
shows "carol may not come in: 127.0.0.1:${at[auth_port]}: reply refused: attribute 11, by this program's hook"
runs 0 hooks alice wonderland staff

runs 0 partition alice wonderland 64
shows '"alice" RADIUS Authentication OK'
runs 2 partition alice wonderland 16
shows '*out of memory'

runs 0 vendor_attributes frank rabbit-hole
shows 'Cisco-AVPair: ip:inacl#1=permit ip any any'
shows 'MS-Primary-DNS-Server: 192.0.2.53'
shows 'WISPr-Bandwidth-Max-Up: 1000000'
shows 'WISPr-Bandwidth-Max-Down: 4000000000'
shows 'frank may come in'
grep -q "WISPr-Location-Name = \"Mad Hatter's Cafe\"" "${at[folder]}/access-requests" || fail "no WISPr-Location-Name"

echo "examples: all run"
