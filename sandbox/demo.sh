#!/usr/bin/env bash
# The scripted tour, run inside the simulated camera (sandbox/device.sh): each netlibctl
# command is printed, then its output. Any step that goes wrong stops the tour with a
# non-zero status.
#   demo.sh BUILD_DIR
set -euo pipefail
BUILD=$(cd "${1:?usage: demo.sh BUILD_DIR}" && pwd)
if [ -z "${NETLIB_IN_DEVICE:-}" ]; then
    echo "demo.sh: run it inside the simulated camera: sandbox/device.sh -- $0 $1" >&2
    exit 2
fi
export PATH="$BUILD/tools:$PATH"
# The device's own scripts find the tool where the camera keeps it.
[ -x /usr/bin/netlibctl ] || ln -sf "$BUILD/tools/netlibctl" /usr/bin/netlibctl
first=${NETLIB_CAP_IFNAMES%%,*}
two_ports=0
[ "$NETLIB_CAP_IFNAMES" = lan1,lan2 ] && two_ports=1

# step CMD...: print the command, then run it.
step() {
    printf '\n$ %s\n' "$*"
    "$@"
}

# refused CMD...: a step that must fail; its error line is part of the tour.
refused() {
    printf '\n$ %s\n' "$*"
    local rc=0
    "$@" 2>&1 || rc=$?
    if [ "$rc" -eq 0 ]; then
        echo "demo.sh: expected a refusal" >&2
        return 1
    fi
    echo "(exit status $rc)"
}

# A command on the neighbour's side of the wire.
nb() { nsenter --net="/proc/$NETLIB_NEIGHBOUR_PID/ns/net" "$@"; }

title() { printf '\n== %s\n' "$*"; }

# The packages an old firmware left: "network" with the one interface section and no marker,
# the modes and servers in "tcpip", the accounts and ports in packages of their own.
old_layout() {
    cat >/etc/config/network <<'EOT'
config interface 'loopback'
	option ifname 'lo'
	option proto 'static'
	option ipaddr '127.0.0.1'
	option netmask '255.0.0.0'

config interface 'lan'
	option ifname 'eth0'
	option type 'bridge'
	option proto 'static'
	option ipaddr '192.168.1.64'
	option netmask '255.255.255.0'
	option gateway '192.168.1.1'
EOT
    cat >/etc/config/tcpip <<'EOT'
config tcpip 'tcpip'
	option ipv4dhcpmode 'false'
	option ipv6mode 'false'
	option cardtype '0'
	option mtu '1400'
	list dns '192.168.1.1'
	list dns '9.9.9.9'
EOT
    cat >/etc/config/ddns <<'EOT'
config ddns 'ddns'
	option enable 'true'
	option type 'NO-IP'
	option domain 'frontdoor.example.net'
	option username 'owner'
	option password 'hunter2'
	option port '80'
EOT
    cat >/etc/config/pppoe <<'EOT'
config pppoe 'pppoe'
	option enable 'false'
	option interface 'eth0'
	option username 'dsl'
	option password 's3cret'
EOT
    cat >/etc/config/port <<'EOT'
config port 'port'
	option httpport '8080'
	option rtspport '554'
	option httpsport '443'

config portmapping 'portmapping'
	option enable 'false'
	option mode '0'
	option HTTP_extport '80'
	option RTSP_extport '554'
EOT
    rm -rf /tmp/.uci
    printf '\n(old-layout packages written: network, tcpip, ddns, pppoe, port)\n'
}

title "A camera with ports ${NETLIB_CAP_IFNAMES//,/ and }, each wired to a neighbour at 192.168.N.1"
step netlibctl names
step netlibctl interfaces
step netlibctl link show "$first"

title "The ports came up from the stored package \"network\" (factory defaults)"
section=$first
[ "$first" = eth0 ] && section=lan
step netlibctl cfg show "$section"

title "Set an address end to end, then read it back live and stored"
step netlibctl addr set "$first" 192.168.1.20 255.255.255.0
step netlibctl addr show "$first"
step netlibctl ether show "$first"
if [ "$two_ports" -eq 1 ]; then
    refused netlibctl addr set lan2 192.168.1.20 255.255.255.0
fi
refused netlibctl addr set "$first" 192.168.1.300 255.255.255.0

title "Collision probes: an address the neighbour owns, and a free one; then IPv6"
step netlibctl probe "$first" 192.168.1.1
step netlibctl probe "$first" 192.168.1.99
step netlibctl addr6 add "$first" 2001:db8:1::10 64
step netlibctl probe6 "$first" 2001:db8:1::1

title "RFC probes name the other host; a quiet neighbour that forgot this camera is still found"
refused netlibctl probe --rfc --fast "$first" 192.168.1.1
step netlibctl probe --rfc --fast "$first" 192.168.1.99
printf '\n(the neighbour forgets the camera: ip -6 neigh flush dev nb1 nud all)\n'
nb ip -6 neigh flush dev nb1 nud all
step netlibctl probe6 "$first" 2001:db8:1::1
refused netlibctl probe6 --dad --fast "$first" 2001:db8:1::1
step netlibctl --json probe6 --dad --fast "$first" 2001:db8:1::99
nb ip -6 neigh replace fe80::ff:fe00:101 lladdr 02:00:00:00:01:01 dev nb1 nud permanent

title "Ping the neighbour, and announce the new address"
step netlibctl ping "$first" 192.168.1.1
step netlibctl announce "$first"
step netlibctl announce --rfc --fast "$first" 192.168.1.20

title "A wrong address under try: the neighbour loses the camera until the roll-back 3 s later"
nb_ping() {
    if nb ping -c 1 -W 1 192.168.1.20 >/dev/null; then
        echo "(neighbour: 192.168.1.20 answers ping)"
    else
        echo "(neighbour: 192.168.1.20 is unreachable)"
        return 1
    fi
}
nb_ping
printf '\n$ netlibctl try --timeout 3 -- addr set %s 192.168.1.77 255.255.255.0    (no one confirms)\n' "$first"
netlibctl try --timeout 3 -- addr set "$first" 192.168.1.77 255.255.255.0 </dev/null &
try=$!
for _ in $(seq 50); do
    netlibctl addr show "$first" | grep -q 192.168.1.77 && break
    sleep 0.1
done
if nb_ping; then
    echo "demo.sh: the wrong address left the camera reachable" >&2
    exit 1
fi
rc=0
wait "$try" || rc=$?
echo "(try ended with status $rc: rolled back)"
[ "$rc" -eq 1 ]
nb_ping

if command -v arping >/dev/null; then
    title "MAC monitor for 3 s, while the neighbour sends ARP with $first's MAC for a moment"
    mac=$(netlibctl mac "$first")
    printf '\n$ netlibctl macmon %s --seconds 3\n' "$first"
    netlibctl macmon "$first" --seconds 3 &
    monitor=$!
    sleep 0.5
    echo "(neighbour: nb1 takes $mac, sends ARP, gives it back)"
    nb ip link set nb1 address "$mac"
    nb arping -c 2 -w 2 -I nb1 192.168.1.20 >/dev/null 2>&1 || true
    nb ip link set nb1 address 02:00:00:00:01:02
    wait "$monitor"
fi

title "Kernel events: the neighbour's side of the cable down and up, an address, and DAD failing"
printf '\n$ netlibctl monitor %s    (in the background while the changes below happen)\n' "$first"
netlibctl monitor "$first" >/tmp/monitor.out &
monitor=$!
sleep 1 # the monitor joins the kernel's groups as it starts
echo "(neighbour: ip link set nb1 down, then up)"
nb ip link set nb1 down
sleep 0.3
nb ip link set nb1 up
# Down took the neighbour's IPv6 address with it; it holds it again for the DAD step below.
nb ip addr replace 2001:db8:1::1/64 dev nb1 nodad
echo "(camera: an address is added)"
netlibctl addr6 add "$first" 2001:db8:1::20 64 >/dev/null
echo "(camera: duplicate-address detection on, and the neighbour's own 2001:db8:1::1 added)"
sysctl -qw "net.ipv6.conf.$first.accept_dad=1"
netlibctl addr6 add "$first" 2001:db8:1::1 64 >/dev/null
for _ in $(seq 50); do
    grep -q dadfailed /tmp/monitor.out && break
    sleep 0.1
done
kill -INT "$monitor"
wait "$monitor"
cat /tmp/monitor.out
grep -q dadfailed /tmp/monitor.out
netlibctl addr6 del "$first" 2001:db8:1::1 64 >/dev/null
sysctl -qw "net.ipv6.conf.$first.accept_dad=0"

title "The resolver file, one block per port"
step netlibctl resolv set "$first" 192.168.1.1 9.9.9.9
step netlibctl resolv show "$first"
step cat /etc/resolv.conf

if [ "$two_ports" -eq 1 ] && command -v dnsmasq >/dev/null && command -v udhcpc >/dev/null; then
    title "DHCP: switch lan2 over and restart the network; dnsmasq on the neighbour answers"
    step netlibctl addr show lan2
    step netlibctl dhcp on lan2
    step netlibctl restart
    step netlibctl addr show lan2
    step netlibctl resolv show lan2
    step cat /etc/resolv.conf
fi

title "An old-layout package converted at start, as after a firmware update"
old_layout
step netlibctl layout show
step netlibctl layout old
step netlibctl layout convert
step netlibctl layout show
step netlibctl ether show "$first"
step cat /tmp/reboot-requests
echo "(the host stand-in only records the reboot; the restart plays its part)"
step netlibctl restart
step netlibctl addr show "$first"
echo "(and the start after the reboot converts again: nothing is due, or a one-port package"
echo " gets its marker)"
step netlibctl layout convert
# Firmware of the old layout (0) would need a roll-back of a one-port package first; the
# two-port layout is understood by layout-2 firmware only.
step netlibctl layout check-back $((two_ports == 1 ? 2 : 0))

title "The driver table, created as an application creates it, answering"
step netlibctl defcard set "$first"
step netlibctl drv show "$first"
step netlibctl drv ping "$first" 192.168.1.1
step netlibctl drv cfg

title "Validators and JSON for scripts"
refused netlibctl check ipv4 192.168.1.0
step netlibctl check mask 255.255.255.0
step netlibctl --json addr show "$first"

printf '\n== Tour finished\n'
