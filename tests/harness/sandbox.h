// The test sandbox: a private network namespace and a private mount namespace in which the
// library's real paths (/etc, /usr/bin (= /bin), /tmp) are overlays the tests own, /sys is
// a fresh sysfs of the private network namespace, and devices are real kernel devices.
// The host's /etc and interfaces are never touched.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace sandbox
{

// How much later than its nominal wait a call may return on a busy or emulated machine before
// a test calls it wrong: upper bounds on waits add this, so they catch a wrong unit or a wait
// that never ends, not a slow scheduler. Speeds themselves are benchmark figures.
constexpr double kLateSec = 2.0;
constexpr long kLateMs = 2000;

// Entered once by the test main, before any test runs.
bool enter();
// Back to a fresh device: no interfaces but lo, empty /etc/config and /etc/resolv.conf,
// the stand-in scripts, a one-interface device. The main calls it after every test.
void reset_device();
// Whether the namespaces could be had; why not, when not.
bool available();
const std::string &why_unavailable();

// Skips the current test, saying why, when the sandbox is not there.
#define REQUIRE_SANDBOX()                                                                          \
    do {                                                                                           \
        if (!::sandbox::available())                                                               \
            GTEST_SKIP() << "sandbox unavailable: " << ::sandbox::why_unavailable();               \
    } while (0)

// ---- Shell, inside the sandbox ----------------------------------------------------------
// Runs a command with /bin/sh; returns its exit status (-1 if it could not run).
int sh(const std::string &cmd);
// Runs a command and returns its standard output.
std::string sh_out(const std::string &cmd);
// Runs a command that must succeed; a failure fails the test (non-fatally) with the command.
void must(const std::string &cmd);

// ---- Devices ----------------------------------------------------------------------------
class Peer;
// A veth pair: `name` here, `peerName` in the peer namespace when one is given (else here).
void veth(const std::string &name, const std::string &peerName, Peer *peer = nullptr);
// A tap device (no carrier: nothing is attached to it).
void tap(const std::string &name);
// A bridge.
void bridge(const std::string &name);
void link_up(const std::string &name);
void link_down(const std::string &name);
// Adds an address in CIDR form ("192.168.1.10/24" or "2001:db8::1/64") to a device here.
void addr_add(const std::string &dev, const std::string &cidr);
void set_mac(const std::string &dev, const std::string &mac);

// A neighbour: a process in a network namespace of its own, alive as long as the object.
class Peer
{
  public:
    Peer();
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    int pid() const { return pid_; }
    // Shell command inside the peer's network namespace.
    int sh(const std::string &cmd) const;
    std::string sh_out(const std::string &cmd) const;
    void must(const std::string &cmd) const;
    // Runs fn in a child process inside the peer's namespace; returns its exit status.
    int run(const std::function<int()> &fn) const;

  private:
    int pid_ = -1;
    int ctl_ = -1; // write end of the keep-alive pipe
};

// ---- Device kind ------------------------------------------------------------------------
// Sets the capability answers: "eth0" for a one-interface device, "lan1,lan2" for two.
void set_device(const std::string &ifnames);

// ---- Files ------------------------------------------------------------------------------
void write_file(const std::string &path, const std::string &content, int mode = 0644);
std::string read_file(const std::string &path);
bool file_exists(const std::string &path);
// Installs an executable shell script (a stand-in for one of the device's scripts).
void write_script(const std::string &path, const std::string &body);

// ---- Log capture ------------------------------------------------------------------------
struct LogLine {
    int level;
    std::string text;
};

// Captures every line the library logs while it lives.
class LogCapture
{
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<LogLine> lines() const;
    // The texts with the source line number blanked: "[NETWORK][NET_Init][] ...".
    std::vector<std::string> texts() const;
    void clear();

  private:
    static void sink(int module, int level, const char *line, void *ctx);
    std::vector<LogLine> lines_;
};

// "[NETWORK][fn][123] rest" -> "[NETWORK][fn][] rest": line numbers are not interface.
std::string without_line(const std::string &text);
// The expected text of a tagged line, for comparison with LogCapture::texts().
std::string expect_line(const std::string &func, const std::string &tagAndMsg);

// ---- Descriptors ------------------------------------------------------------------------
int open_fd_count();

// Fails the test if the number of open descriptors differs at the end of the scope.
class FdCheck
{
  public:
    FdCheck() : before_(open_fd_count()) {}
    ~FdCheck() { EXPECT_EQ(before_, open_fd_count()) << "descriptor count changed"; }

  private:
    int before_;
};

// Lowers the descriptor limit to what is open now and fills every gap below it, so the next
// socket() or open() fails with EMFILE: a call that opens one then shows it.
class NoMoreDescriptors
{
  public:
    NoMoreDescriptors();
    ~NoMoreDescriptors();
    NoMoreDescriptors(const NoMoreDescriptors &) = delete;
    NoMoreDescriptors &operator=(const NoMoreDescriptors &) = delete;

  private:
    unsigned long savedCur_;
    std::vector<int> fillers_;
};

// True where SIOCETHTOOL is not carried (qemu's user-mode emulator answers ENOSYS).
bool ethtool_emulated();
// True where the IPv6 address requests (in6_ifreq) are not carried, for the same reason.
bool ipv6_addr_requests_emulated();

// Skips the current test where the emulator does not carry the requests it makes.
#define SKIP_IF_EMULATED(cond, what)                                                               \
    do {                                                                                           \
        if (cond)                                                                                  \
            GTEST_SKIP() << what << " is not carried by this emulator";                            \
    } while (0)

// Thread entry for the MAC monitor under test (arg: the interface name). Under ASan it clears
// the stale stack marks a cancellation leaves behind the library's unwound frames.
void *mac_monitor_thread(void *ifname);

// Path of a file of the source tree (for example "sandbox/stubs/network").
std::string source_path(const std::string &rel);

} // namespace sandbox
