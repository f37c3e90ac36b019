#!/usr/bin/env bash
#
# Compiles library, port and programs for 32-bit ARM, where size_t, time_t and long have 32 bits. It links
# and runs nothing: the headers of OpenSSL, SQLite, CLI11 and JSON are this machine's.
set -euo pipefail
cd "$(dirname "$0")/.."

compiler=arm-linux-gnueabihf-g++
headers=$(mktemp -d)
units=$(mktemp -d)
trap 'rm -rf "$headers" "$units"' EXIT
for name in CLI nlohmann sqlite3.h; do
    ln -s "/usr/include/$name" "$headers/$name"
done
# Debian keeps the headers of OpenSSL that tell of the machine apart.
mkdir "$headers/openssl"
ln -s /usr/include/openssl/*.h "/usr/include/$(gcc -print-multiarch)"/openssl/*.h "$headers/openssl"

# The larger programs share most of what they cost, CLI11 and JSON: ten files of theirs are one unit. They come first,
# so that no core waits for one of them at the end.
for program in lanyardctl pnac_wired; do
    git ls-files -- "tools/$program/*.cpp" | sed 's/.*/#include "&"/' |
        split --lines=10 --additional-suffix=.cpp - "$units/$program-"
done
mapfile -d '' -t sources < <(git ls-files -z -- \
    '*.cpp' ':!bench' ':!examples' ':!fuzz' ':!tests' ':!tools/lanyardctl' ':!tools/pnac_wired' | LC_ALL=C sort -z -r)
[[ ${#sources[@]} -gt 50 ]] || { echo "check-arm: found only ${#sources[@]} files" >&2; exit 1; }
sources=("$units"/*.cpp "${sources[@]}")

# As CMake's Release has it: some warnings come from the optimiser. What g++ 12 says of "text" + string is
# none: it takes the lengths of std::string for signed.
printf '%s\0' "${sources[@]}" | xargs -0 -P "$(nproc)" -n 1 "$compiler" -std=c++20 -O3 -DNDEBUG -fPIC -c -o /dev/null \
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Wno-restrict -Werror \
    -DOPENSSL_API_COMPAT=0x10100000L -DLANYARD_VERSION='""' -DLANYARD_PROGRAM='"radauth"' -DLANYARD_DEFAULT_DICTIONARY='""' \
    -I . -I src -I include -I platform/include -isystem "$headers"
echo "check-arm: ${#sources[@]} units compile"
