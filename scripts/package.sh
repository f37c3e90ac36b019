#!/usr/bin/env bash
#
# Makes the Debian packages of this tree, in build/packages, and fails where lintian sees an error in them.
#
#   package.sh [VERSION...]   one after the other, in place of the latest one in debian/changelog
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh --packages
version=$(dpkg-parsechangelog -S Version)
grep -q "^project(lanyard-radius VERSION ${version%-*} " CMakeLists.txt ||
    { echo "package: debian/changelog has $version, CMakeLists.txt another one" >&2; exit 1; }

# dpkg writes into the tree that it builds, and beside it.
packages=$PWD/build/packages
rm -rf "$packages"
mkdir -p "$packages/source"
git ls-files -z | tar --create --null --files-from=- | tar --extract --directory="$packages/source"
cd "$packages/source"

# The compiler's cache is in the home directory, which a build of packages does not see.
if command -v ccache >/dev/null; then
    CCACHE_DIR=$(ccache --get-config cache_dir)
    export CCACHE_DIR PATH=/usr/lib/ccache:$PATH
fi
# What is built for one version is packaged for all.
for version in "${@:-$version}"; do
    sed -i "1s/(.*)/($version)/" debian/changelog
    nice dpkg-buildpackage --no-pre-clean --build=binary --unsigned-changes >"$packages/log" 2>&1 ||
        { tail -n 30 "$packages/log" >&2; echo "package: FAILED, see $packages/log" >&2; exit 1; }
done
cd "$packages"
rm -rf source
# Nobody asked for these packages in Debian.
lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs "lanyard-radius_${version}_"*.changes
ls ./*.deb
