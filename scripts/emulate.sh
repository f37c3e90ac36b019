#!/usr/bin/env bash
#
# Runs a command where programs of another machine (arm, s390x) start as this machine's do, by qemu-user; also
# those that such programs start. Nothing changes for the rest of this machine: the kernel keeps what starts
# which program for each user namespace apart (from Linux 6.7 on). Ends with 77 where it does not.
#
#   emulate.sh MACHINE SYSROOT COMMAND [ARGUMENT...]
set -euo pipefail

[[ $# -ge 3 ]] || { echo "Usage: $0 MACHINE SYSROOT COMMAND [ARGUMENT...]" >&2; exit 2; }
machine=$1
export QEMU_LD_PREFIX=$2
shift 2

# How an ELF file of the machine begins: word size, byte order, ABI; program or shared object; the machine.
case $machine in
    arm)
        magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
        mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
        ;;
    s390x)
        magic='\x7fELF\x02\x02\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x16'
        mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff'
        ;;
    *) echo "emulate: what is '$machine'?" >&2; exit 2 ;;
esac

if ! unshare --user --map-root-user --mount mount -t binfmt_misc none /proc/sys/fs/binfmt_misc 2>/dev/null; then
    echo "emulate: no namespaces here, or no binfmt_misc of their own" >&2
    exit 77
fi

# shellcheck disable=SC2016  # the shells in the namespaces read these
register='
    mount -t binfmt_misc none /proc/sys/fs/binfmt_misc
    printf "%s" "$1" >/proc/sys/fs/binfmt_misc/register
    shift'
rule=:qemu-$machine:M::$magic:$mask:$(command -v "qemu-$machine"):PF

if [[ $EUID -ne 0 ]]; then
    # Root of one namespace registers, and the command runs as its user in another one in it.
    # shellcheck disable=SC2016
    exec unshare --user --map-root-user --mount bash -ec "$register"'
        exec unshare --user --map-user="$1" --map-group="$2" -- "${@:3}"' bash "$rule" "$(id -u)" "$(id -g)" "$@"
fi

# Root keeps all users and groups: who it is and whom it may become is what some tests are about. The
# namespace has none until it is told from outside, and waits for that.
gates=$(mktemp -d)
trap 'rm -rf "$gates"' EXIT
mkfifo "$gates/made" "$gates/mapped"
# shellcheck disable=SC2016
unshare --user --mount bash -ec ': >"$1/made"; : <"$1/mapped"; shift'"$register"'
    exec "$@"' bash "$gates" "$rule" "$@" <&0 &
pid=$!
: <"$gates/made"
for kind in uid gid; do
    awk '{print $1, $1, $3}' "/proc/self/${kind}_map" >"/proc/$pid/${kind}_map"
done
: >"$gates/mapped"
trap 'kill "$pid" 2>/dev/null' HUP INT TERM
wait "$pid"
