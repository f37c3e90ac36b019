#!/usr/bin/env bash
#
# Compiles library, port and programs for 32-bit ARM, where size_t, time_t and long have 32 bits. It links
# and runs nothing: the headers of OpenSSL, SQLite, CLI11 and JSON are this machine's.
set -euo pipefail
cd "$(dirname "$0")/.."

compiler=arm-linux-gnueabihf-g++
headers=$(mktemp -d)
trap 'rm -rf "$headers"' EXIT
for name in CLI nlohmann sqlite3.h; do
    ln -s "/usr/include/$name" "$headers/$name"
done
# Debian keeps the headers of OpenSSL that tell of the machine apart.
mkdir "$headers/openssl"
ln -s /usr/include/openssl/*.h "/usr/include/$(gcc -print-multiarch)"/openssl/*.h "$headers/openssl"

# The programs, which take longest, come first: no core waits for one of them at the end.
mapfile -d '' -t sources < <(git ls-files -z -- \
    '*.cpp' ':!bench' ':!examples' ':!fuzz' ':!tests' | LC_ALL=C sort -z -r)
[[ ${#sources[@]} -gt 50 ]] || { echo "check-arm: found only ${#sources[@]} files" >&2; exit 1; }

# As CMake's Release has it: some warnings come from the optimiser. What g++ 12 says of "text" + string is
# none: it takes the lengths of std::string for signed.
printf '%s\0' "${sources[@]}" | xargs -0 -P "$(nproc)" -n 1 "$compiler" -std=c++20 -O3 -DNDEBUG -fPIC -c -o /dev/null \
    -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Wno-restrict -Werror \
    -DOPENSSL_API_COMPAT=0x10100000L -DLANYARD_VERSION='""' -DLANYARD_PROGRAM='"radauth"' -DLANYARD_DEFAULT_DICTIONARY='""' \
    -I . -I src -I include -I platform/include -isystem "$headers"
echo "check-arm: ${#sources[@]} files compile"
