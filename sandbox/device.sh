#!/usr/bin/env bash
# A simulated camera on this host: private network and mount namespaces holding the
# device's ports ("eth0", or "lan1" and "lan2"), each wired by veth to a neighbour
# namespace that plays the LAN; private /etc, /usr/bin (= /bin) and /tmp overlays with the
# device's stand-in scripts. The host is never touched.
#   device.sh [--ports eth0|lan1,lan2] -- COMMAND [ARGS...]
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ports=lan1,lan2
while [ $# -gt 0 ]; do
    case "$1" in
    --ports) ports=$2; shift 2 ;;
    --) shift; break ;;
    *) break ;;
    esac
done
[ $# -gt 0 ] || set -- bash --norc -i

if [ -z "${NETLIB_IN_DEVICE:-}" ]; then
    export NETLIB_IN_DEVICE=1
    userns=()
    [ "$(id -u)" -eq 0 ] || userns=(--user --map-root-user)
    exec unshare "${userns[@]}" --net --mount --fork "$0" --ports "$ports" -- "$@"
fi

# Inside: private paths first.
mount --make-rprivate /
mount -t tmpfs -o mode=0755 tmpfs /dev/shm
i=0
for d in /etc /usr/bin /tmp; do
    mkdir -p /dev/shm/ov$i/upper /dev/shm/ov$i/work
    mount -t overlay overlay -o "lowerdir=$d,upperdir=/dev/shm/ov$i/upper,workdir=/dev/shm/ov$i/work" "$d"
    i=$((i + 1))
done
mount -t sysfs sysfs /sys
ip link set lo up

# The neighbour: a process in a network namespace of its own.
unshare --net sleep infinity &
peer=$!
trap 'kill $peer 2>/dev/null || true' EXIT
for _ in $(seq 50); do
    [ "$(readlink /proc/$peer/ns/net 2>/dev/null)" != "$(readlink /proc/self/ns/net)" ] && break
    sleep 0.02
done
nb() { nsenter --net=/proc/$peer/ns/net "$@"; }
nb ip link set lo up

n=1
for port in ${ports//,/ }; do
    ip link add "$port" type veth peer name "nb$n"
    ip link set "$port" address "02:00:00:00:0$n:01"
    ip link set "nb$n" address "02:00:00:00:0$n:02"
    ip link set "nb$n" netns "$peer"
    nb ip addr add "192.168.$n.1/24" brd + dev "nb$n"
    nb ip link set "nb$n" up
    ip addr add "192.168.$n.10/24" brd + dev "$port"
    ip link set "$port" up
    n=$((n + 1))
done

# The device's files.
rm -rf /etc/config /tmp/.uci
mkdir -p /etc/config /etc/init.d
: >/etc/resolv.conf
install -m 755 "$HERE/stubs/network" /etc/init.d/network
install -m 755 "$HERE/stubs/config_generate" /bin/config_generate
install -m 755 "$HERE/stubs/lldpd" /usr/bin/lldpd
export NETLIB_CAP_IFNAMES=$ports
export NETLIB_NEIGHBOUR_PID=$peer
"$@"
