#!/usr/bin/env bash
# A simulated camera on this host: private network, mount and pid namespaces holding the
# device's ports ("eth0", or "lan1" and "lan2"), port N wired by veth to a neighbour
# namespace that plays its LAN (192.168.N.1 and 2001:db8:N::1, answering ping, ARP and
# neighbour solicitations, serving DHCP with dnsmasq); private /etc, /usr/bin (= /bin) and
# /tmp overlays with the device's stand-in scripts and the default "network" package of
# /bin/config_generate, applied at start by the stand-in network script. The host is never
# touched, and everything started inside ends with the command.
#   device.sh [--ports eth0|lan1,lan2] [--build DIR] [-- COMMAND [ARGS...]]
# With --build, DIR/tools/netlibctl is installed as /usr/bin/netlibctl. Without a command,
# an interactive shell.
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ports=lan1,lan2
build=
while [ $# -gt 0 ]; do
    case "$1" in
    --ports) ports=$2; shift 2 ;;
    --build) build=$(cd "$2" && pwd); shift 2 ;;
    --) shift; break ;;
    *) break ;;
    esac
done
case "$ports" in
eth0 | lan1 | lan2 | lan1,lan2) ;;
*) echo "device.sh: --ports takes eth0, lan1, lan2 or lan1,lan2, not '$ports'" >&2; exit 2 ;;
esac
if [ $# -eq 0 ]; then
    export NETLIB_DEVICE_SHELL=1
    set -- bash --norc -i
fi

if [ -z "${NETLIB_IN_DEVICE:-}" ]; then
    export NETLIB_IN_DEVICE=1
    userns=()
    [ "$(id -u)" -eq 0 ] || userns=(--user --map-root-user)
    # A pid namespace of its own: small pids (the ping matches replies by the whole pid) and,
    # when the command ends, the end of every process started inside (dnsmasq, the neighbour).
    exec unshare "${userns[@]}" --net --mount --pid --fork --mount-proc \
        "$0" --ports "$ports" ${build:+--build "$build"} -- "$@"
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
for _ in $(seq 100); do
    [ "$(readlink /proc/$peer/ns/net 2>/dev/null)" != "$(readlink /proc/self/ns/net)" ] && break
    sleep 0.02
done
nb() { nsenter --net=/proc/$peer/ns/net "$@"; }
nb ip link set lo up
# Link-local addresses usable at once: no duplicate address detection on either side.
echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad
nb sh -c 'echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad'

# Port N (in the order given) is wired to nbN, the neighbour's leg on 192.168.N.0/24.
n=1
dhcp_ranges=()
for port in ${ports//,/ }; do
    ip link add "$port" type veth peer name "nb$n"
    ip link set "$port" address "02:00:00:00:0$n:01"
    ip link set "nb$n" address "02:00:00:00:0$n:02"
    ip link set "nb$n" netns "$peer"
    nb ip addr add "192.168.$n.1/24" brd + dev "nb$n"
    nb ip addr add "2001:db8:$n::1/64" dev "nb$n" nodad
    # The device's IPv6 probe carries no link-layer option: a Linux neighbour answers it only
    # when it knows the sender already.
    nb ip -6 neigh add "fe80::ff:fe00:${n}01" lladdr "02:00:00:00:0$n:01" dev "nb$n" nud permanent
    nb ip link set "nb$n" up
    ip link set "$port" up
    dhcp_ranges+=(--interface="nb$n" --dhcp-range="192.168.$n.100,192.168.$n.150,255.255.255.0,1h")
    n=$((n + 1))
done

# The LAN's DHCP server. 0.0.0.0 stands for dnsmasq's own address on each leg; no DNS
# service (port 0), no ping before an offer (it would cost seconds), nothing outside /tmp.
if command -v dnsmasq >/dev/null 2>&1; then
    nb dnsmasq --conf-file=/dev/null --port=0 --no-ping --bind-interfaces --user=root \
        --group=root "${dhcp_ranges[@]}" --dhcp-option=option:router,0.0.0.0 \
        --dhcp-option=option:dns-server,0.0.0.0 --dhcp-leasefile=/tmp/dnsmasq.leases \
        --pid-file=/tmp/dnsmasq.pid --log-facility=/tmp/dnsmasq.log
else
    echo "device.sh: dnsmasq is missing (package dnsmasq-base): the LAN serves no DHCP" >&2
fi

# The device's files.
rm -rf /etc/config /tmp/.uci
mkdir -p /etc/config /etc/init.d
: >/etc/resolv.conf
install -m 755 "$HERE/stubs/network" /etc/init.d/network
install -m 755 "$HERE/stubs/config_generate" /bin/config_generate
install -m 755 "$HERE/stubs/lldpd" /usr/bin/lldpd
if [ -n "$build" ]; then
    ln -sf "$build/tools/netlibctl" /usr/bin/netlibctl
fi

export NETLIB_CAP_IFNAMES=$ports
export NETLIB_NEIGHBOUR_PID=$peer
export NETLIB_REBOOT_FILE=/tmp/reboot-requests

# The factory configuration, from the device's own generator.
/bin/config_generate

# Bring the ports up from the stored package, as the device's start does.
if [ -x /usr/bin/netlibctl ]; then
    /etc/init.d/network start || echo "device.sh: applying the stored configuration failed" \
        "(see /tmp/network-script.log)" >&2
else
    n=1
    for port in ${ports//,/ }; do
        ip addr add "192.168.$n.10/24" brd + dev "$port"
        n=$((n + 1))
    done
fi

if [ -n "${NETLIB_DEVICE_SHELL:-}" ]; then
    unset NETLIB_DEVICE_SHELL
    echo "A simulated camera: ports ${ports//,/ } (192.168.N.10), each wired to a neighbour"
    echo "at 192.168.N.1 that answers ping and ARP and serves DHCP. Run the neighbour's"
    echo "commands with: nsenter --net=/proc/\$NETLIB_NEIGHBOUR_PID/ns/net CMD. 'exit' leaves."
    export PS1='camera:\w# '
fi
"$@"
