// The device's port names and the rules that pair them: one place for "eth0", "lan1", "lan2"
// and the section "lan" that stands for "eth0" in the "network" package.
#pragma once

namespace netlib
{

constexpr const char kEth0[] = "eth0";
constexpr const char kLan1[] = "lan1";
constexpr const char kLan2[] = "lan2";
// The section of "network" that holds eth0's settings.
constexpr const char kEth0Section[] = "lan";

// The other port of a two-interface device: "lan2" for the first interface, the first
// interface for "lan2", else none (null). Only on a device whose capability answer is
// exactly 1: a third name, such as a PPPoE link, is never paired.
const char *other_interface(const char *ifname);

// The "network" section that holds an interface's settings: "lan" for "eth0", else the name.
const char *uci_section_of(const char *ifname);

} // namespace netlib
