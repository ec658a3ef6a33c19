#include "sandbox.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/ipv6.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <mutex>
#include <sstream>

#include "companion.h"
#include "libnetwork.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace sandbox
{
namespace
{

bool g_available = false;
std::string g_why = "sandbox not entered";
std::mutex g_logLock;

// Staging area for the overlays' upper and work directories: a fresh tmpfs, seen only here.
constexpr const char kStage[] = "/dev/shm";

bool fail(const std::string &what)
{
    g_why = what + ": " + strerror(errno);
    return false;
}

bool write_proc(const char *path, const std::string &text)
{
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return ok;
}

bool unshare_namespaces()
{
    if (geteuid() == 0)
        return unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 || fail("unshare(net, mount)");
    // Not root: a user namespace of our own makes us root over the new namespaces.
    uid_t uid = geteuid();
    gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0)
        return fail("unshare(user, net, mount)");
    write_proc("/proc/self/setgroups", "deny");
    if (!write_proc("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !write_proc("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
        return fail("user namespace id maps");
    return true;
}

bool overlay(const std::string &target, int n)
{
    std::string base = std::string(kStage) + "/ov" + std::to_string(n);
    std::string upper = base + "/upper", work = base + "/work";
    if (mkdir(base.c_str(), 0755) != 0 || mkdir(upper.c_str(), 0755) != 0 ||
        mkdir(work.c_str(), 0755) != 0)
        return fail("mkdir " + base);
    std::string opts = "lowerdir=" + target + ",upperdir=" + upper + ",workdir=" + work;
    if (mount("overlay", target.c_str(), "overlay", 0, opts.c_str()) != 0)
        return fail("overlay on " + target);
    return true;
}

bool private_paths()
{
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return fail("make / private");
    if (mount("tmpfs", kStage, "tmpfs", 0, "mode=0755") != 0)
        return fail(std::string("tmpfs on ") + kStage);
    // /bin is /usr/bin on the build machines: one overlay covers both.
    const char *targets[] = {"/etc", "/usr/bin", "/tmp"};
    for (int i = 0; i < 3; ++i)
        if (!overlay(targets[i], i))
            return false;
    // sysfs shows the network namespace it was mounted in.
    if (mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
        return fail("sysfs on /sys");
    return true;
}

} // namespace

// The device's own state at the start of every test: no interfaces but lo, an empty
// /etc/config, a one-interface device, and the stand-in scripts.
void reset_device()
{
    std::string links = sh_out("ip -o link show | awk -F': ' '{print $2}' | cut -d@ -f1");
    std::istringstream in(links);
    for (std::string dev; std::getline(in, dev);)
        if (!dev.empty() && dev != "lo")
            sh("ip link del " + dev + " 2>/dev/null");
    sh("ip link set lo up");
    sh("rm -rf /etc/config /tmp/.uci && mkdir -p /etc/config /etc/init.d && : > /etc/resolv.conf");
    sh("cp " + source_path("sandbox/stubs/network") + " /etc/init.d/network");
    sh("cp " + source_path("sandbox/stubs/config_generate") + " /bin/config_generate");
    sh("cp " + source_path("sandbox/stubs/lldpd") + " /usr/bin/lldpd");
    sh("chmod 755 /etc/init.d/network /bin/config_generate /usr/bin/lldpd");
    set_device("eth0");
}

bool enter()
{
    if (!unshare_namespaces() || !private_paths()) {
        g_available = false;
        return false;
    }
    g_available = true;
    g_why.clear();
    setenv("NETLIB_LOG", "stderr", 1);
    setenv("NETLIB_LOG_LEVEL", "3", 1);
    reset_device();
    return true;
}

bool available()
{
    return g_available;
}
const std::string &why_unavailable()
{
    return g_why;
}

int sh(const std::string &cmd)
{
    int st = system(cmd.c_str());
    if (st == -1 || !WIFEXITED(st))
        return -1;
    return WEXITSTATUS(st);
}

std::string sh_out(const std::string &cmd)
{
    std::string out;
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    pclose(p);
    return out;
}

void must(const std::string &cmd)
{
    int st = sh(cmd);
    EXPECT_EQ(0, st) << "command failed: " << cmd;
}

void veth(const std::string &name, const std::string &peerName, Peer *peer)
{
    must("ip link add " + name + " type veth peer name " + peerName);
    if (peer != nullptr) {
        must("ip link set " + peerName + " netns " + std::to_string(peer->pid()));
        peer->must("ip link set " + peerName + " up");
    } else {
        must("ip link set " + peerName + " up");
    }
    must("ip link set " + name + " up");
}

void tap(const std::string &name)
{
    must("ip tuntap add dev " + name + " mode tap");
}
void bridge(const std::string &name)
{
    must("ip link add " + name + " type bridge");
}
void link_up(const std::string &name)
{
    must("ip link set " + name + " up");
}
void link_down(const std::string &name)
{
    must("ip link set " + name + " down");
}

void addr_add(const std::string &dev, const std::string &cidr)
{
    // nodad: an IPv6 address is usable at once instead of after duplicate detection;
    // brd +: an IPv4 address gets its subnet's broadcast address, as on the device.
    bool v6 = cidr.find(':') != std::string::npos;
    must("ip addr add " + cidr + " dev " + dev + (v6 ? " nodad" : " brd +"));
}

void set_mac(const std::string &dev, const std::string &mac)
{
    must("ip link set " + dev + " address " + mac);
}

Peer::Peer()
{
    int ready[2], ctl[2];
    if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(ctl, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe: " << strerror(errno);
        return;
    }
    pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        close(ctl[1]);
        char ok = unshare(CLONE_NEWNET) == 0 ? 1 : 0;
        if (ok)
            ok = system("ip link set lo up") == 0 ? 1 : 0;
        if (write(ready[1], &ok, 1) != 1)
            _exit(1);
        char c;
        // Lives until the owner closes the pipe (or dies).
        while (read(ctl[0], &c, 1) > 0) {
        }
        _exit(0);
    }
    close(ready[1]);
    close(ctl[0]);
    char ok = 0;
    if (pid < 0 || read(ready[0], &ok, 1) != 1 || ok != 1)
        ADD_FAILURE() << "peer namespace could not start";
    close(ready[0]);
    pid_ = pid;
    ctl_ = ctl[1];
}

Peer::~Peer()
{
    if (ctl_ >= 0)
        close(ctl_);
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

int Peer::run(const std::function<int()> &fn) const
{
    pid_t pid = fork();
    if (pid == 0) {
        std::string ns = "/proc/" + std::to_string(pid_) + "/ns/net";
        int fd = open(ns.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0 || setns(fd, CLONE_NEWNET) != 0)
            _exit(126);
        close(fd);
        _exit(fn());
    }
    int st = 0;
    if (pid < 0 || waitpid(pid, &st, 0) != pid || !WIFEXITED(st))
        return -1;
    return WEXITSTATUS(st);
}

int Peer::sh(const std::string &cmd) const
{
    return run([&] {
        execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char *>(nullptr));
        return 127;
    });
}

std::string Peer::sh_out(const std::string &cmd) const
{
    return ::sandbox::sh_out("nsenter --net=/proc/" + std::to_string(pid_) + "/ns/net sh -c '" +
                             cmd + "'");
}

void Peer::must(const std::string &cmd) const
{
    int st = sh(cmd);
    EXPECT_EQ(0, st) << "peer command failed: " << cmd;
}

void set_device(const std::string &ifnames)
{
    setenv("NETLIB_CAP_IFNAMES", ifnames.c_str(), 1);
}

void write_file(const std::string &path, const std::string &content, int mode)
{
    std::string dir = path.substr(0, path.rfind('/'));
    if (!dir.empty())
        sh("mkdir -p '" + dir + "'");
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    chmod(path.c_str(), static_cast<mode_t>(mode));
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool file_exists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

void write_script(const std::string &path, const std::string &body)
{
    write_file(path, "#!/bin/sh\n" + body + "\n", 0755);
}

LogCapture::LogCapture()
{
    COMP_SetLogSink(&LogCapture::sink, this);
}
LogCapture::~LogCapture()
{
    COMP_SetLogSink(nullptr, nullptr);
}

void LogCapture::sink(int, int level, const char *line, void *ctx)
{
    auto *self = static_cast<LogCapture *>(ctx);
    std::lock_guard<std::mutex> g(g_logLock);
    self->lines_.push_back(LogLine{level, line});
}

std::vector<LogLine> LogCapture::lines() const
{
    std::lock_guard<std::mutex> g(g_logLock);
    return lines_;
}

std::vector<std::string> LogCapture::texts() const
{
    std::vector<std::string> out;
    for (const LogLine &l : lines())
        out.push_back(without_line(l.text));
    return out;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> g(g_logLock);
    lines_.clear();
}

std::string without_line(const std::string &text)
{
    // The third bracket holds the line number.
    size_t a = text.find("][");
    if (a == std::string::npos)
        return text;
    size_t b = text.find("][", a + 2);
    if (b == std::string::npos)
        return text;
    size_t c = text.find(']', b + 2);
    if (c == std::string::npos)
        return text;
    return text.substr(0, b + 2) + text.substr(c);
}

std::string expect_line(const std::string &func, const std::string &tagAndMsg)
{
    return "[NETWORK][" + func + "][] " + tagAndMsg;
}

int open_fd_count()
{
    DIR *d = opendir("/proc/self/fd");
    if (d == nullptr)
        return -1;
    int n = 0;
    while (readdir(d) != nullptr)
        ++n;
    closedir(d);
    return n - 3; // ".", ".." and the directory's own descriptor
}

NoMoreDescriptors::NoMoreDescriptors()
{
    struct rlimit lim;
    getrlimit(RLIMIT_NOFILE, &lim);
    savedCur_ = lim.rlim_cur;
    int highest = 0;
    for (int fd = 0; fd < 4096; ++fd)
        if (fcntl(fd, F_GETFD) != -1)
            highest = fd;
    lim.rlim_cur = static_cast<rlim_t>(highest + 1);
    setrlimit(RLIMIT_NOFILE, &lim);
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
        fillers_.push_back(fd);
}

NoMoreDescriptors::~NoMoreDescriptors()
{
    for (int fd : fillers_)
        close(fd);
    struct rlimit lim;
    getrlimit(RLIMIT_NOFILE, &lim);
    lim.rlim_cur = static_cast<rlim_t>(savedCur_);
    setrlimit(RLIMIT_NOFILE, &lim);
}

bool ethtool_emulated()
{
    struct ethtool_value v = {ETHTOOL_GLINK, 0};
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
    ifr.ifr_data = reinterpret_cast<char *>(&v);
    bool unsupported = ioctl(fd, SIOCETHTOOL, &ifr) < 0 && errno == ENOSYS;
    close(fd);
    return unsupported;
}

bool ipv6_addr_requests_emulated()
{
    struct in6_ifreq req;
    memset(&req, 0, sizeof req);
    req.ifr6_addr.s6_addr[15] = 2; // ::2, never held by lo
    req.ifr6_prefixlen = 128;
    req.ifr6_ifindex = 1;
    int fd = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool unsupported = ioctl(fd, SIOCDIFADDR, &req) < 0 && errno == ENOSYS;
    close(fd);
    return unsupported;
}

namespace
{
#if defined(__SANITIZE_ADDRESS__)
// Cancelling unwinds the library's frames without the sanitizer unpoisoning them, and it
// then trips over its own stale stack marks as the thread ends. Clearing them while the
// cancellation unwinds through here keeps the report for real faults.
struct AfterCancel {
    ~AfterCancel()
    {
        pthread_attr_t attr;
        void *low = nullptr;
        size_t size = 0;
        if (pthread_getattr_np(pthread_self(), &attr) != 0)
            return;
        pthread_attr_getstack(&attr, &low, &size);
        pthread_attr_destroy(&attr);
        // Everything below this frame belonged to the unwound ones.
        char *here = static_cast<char *>(__builtin_frame_address(0));
        __asan_unpoison_memory_region(low, static_cast<size_t>(here - static_cast<char *>(low)));
    }
};
#else
struct AfterCancel {
};
#endif
} // namespace

void *mac_monitor_thread(void *ifname)
{
    [[maybe_unused]] AfterCancel clean;
    return net_DetectMacCollisionThread(ifname);
}

std::string source_path(const std::string &rel)
{
    return std::string(NETLIB_SOURCE_DIR) + "/" + rel;
}

} // namespace sandbox
