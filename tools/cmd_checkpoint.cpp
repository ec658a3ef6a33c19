// Checkpoints from a shell: the pending one's status, confirm, roll back, the poll a start
// script runs, and "try", which runs one netlibctl command under a checkpoint and keeps its
// change only when someone confirms it before the deadline.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "args.h"
#include "cli.h"
#include "json.h"
#include "libnetwork.h"

namespace
{

// Words scripts match, in NET_CKPT_R_* order.
const struct {
    uint32_t bit;
    const char *word;
} kParts[] = {{NET_CKPT_R_PACKAGE, "package"}, {NET_CKPT_R_RESOLV, "resolv.conf"},
              {NET_CKPT_R_LINK, "link"},       {NET_CKPT_R_MTU, "mtu"},
              {NET_CKPT_R_IPV4, "ipv4"},       {NET_CKPT_R_IPV6, "ipv6"},
              {NET_CKPT_R_ROUTES, "routes"},   {NET_CKPT_R_DHCP, "dhcp"}};

const char *state_name(int state)
{
    switch (state) {
    case NET_CKPT_NONE:
        return "none";
    case NET_CKPT_PENDING:
        return "pending";
    case NET_CKPT_EXPIRED:
        return "expired";
    }
    return "unknown";
}

std::string utc(int64_t unixTime)
{
    time_t t = static_cast<time_t>(unixTime);
    struct tm tm;
    char buf[32];
    gmtime_r(&t, &tm);
    strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

void parts(Json &j, const char *key, uint32_t bits)
{
    j.begin_array(key);
    for (const auto &p : kParts)
        if (bits & p.bit)
            j.str(nullptr, p.word);
    j.end_array();
}

std::string parts_text(uint32_t bits)
{
    std::string s;
    for (const auto &p : kParts)
        if (bits & p.bit)
            s += (s.empty() ? "" : ", ") + std::string(p.word);
    return s.empty() ? "nothing" : s;
}

// What a roll-back put back and what not: members of an open object, or lines.
void result_out(const Ctx &c, Json &j, const NetRollbackResult &r)
{
    if (c.json) {
        parts(j, "restored", r.uiRestored);
        parts(j, "failed", r.uiFailed);
        j.num("ports", r.iPorts)
            .str("failed_port", r.szFailedPort[0] ? r.szFailedPort : nullptr)
            .str("detail", r.szDetail[0] ? r.szDetail : nullptr);
        return;
    }
    printf("restored: %s (%d port%s)\n", parts_text(r.uiRestored).c_str(), r.iPorts,
           r.iPorts == 1 ? "" : "s");
    if (r.uiFailed != 0)
        printf("NOT restored: %s%s%s%s%s\n", parts_text(r.uiFailed).c_str(),
               r.szFailedPort[0] ? " on " : "", r.szFailedPort, r.szDetail[0] ? ": " : "",
               r.szDetail);
}

void status_out(const Ctx &c, Json &j, const NetCheckpoint &k)
{
    bool none = k.iState == NET_CKPT_NONE;
    if (c.json) {
        j.str("state", state_name(k.iState));
        if (none)
            j.null("timeout_s").null("remaining_ms").null("created").null("same_boot");
        else
            j.num("timeout_s", k.uiTimeoutS)
                .num("remaining_ms", static_cast<long>(k.llRemainingMs))
                .str("created", utc(k.llCreatedUnix))
                .boolean("same_boot", k.iSameBoot == 1);
        return;
    }
    if (none) {
        printf("no checkpoint\n");
        return;
    }
    std::string made = "created " + utc(k.llCreatedUnix) + ", timeout " +
                       std::to_string(k.uiTimeoutS) + " s" +
                       (k.iSameBoot == 1 ? "" : ", before the device last started");
    if (k.iState == NET_CKPT_PENDING)
        printf("checkpoint pending: rolled back in %lld s unless confirmed (%s)\n",
               static_cast<long long>((k.llRemainingMs + 999) / 1000), made.c_str());
    else
        printf("checkpoint expired: the next poll rolls it back (%s)\n", made.c_str());
}

bool read_status(const Ctx &c, NetCheckpoint *k)
{
    memset(k, 0, sizeof *k);
    if (NET_CheckpointStatus(k) == 0)
        return true;
    fail(c, "the checkpoint cannot be read (-v shows the library's log)");
    return false;
}

int none_pending(const Ctx &c)
{
    fprintf(stderr, "netlibctl %s: no checkpoint is pending\n", c.cmd.c_str());
    return kExitUsage;
}

int show(Ctx &c, Args &a)
{
    c.json = a.flag("--json") || c.json;
    if (!a.end())
        return kExitUsage;
    NetCheckpoint k;
    if (!read_status(c, &k))
        return kExitFail;
    Json j;
    j.begin_object();
    status_out(c, j, k);
    if (c.json)
        j.end_object().print();
    return 0;
}

int confirm(Ctx &c, Args &a)
{
    c.json = a.flag("--json") || c.json;
    if (!a.end())
        return kExitUsage;
    if (NET_CheckpointConfirm() != 0) {
        NetCheckpoint k;
        if (!read_status(c, &k))
            return kExitFail;
        return k.iState == NET_CKPT_NONE ? none_pending(c)
                                         : fail(c, "the checkpoint could not be dropped");
    }
    if (c.json)
        Json().begin_object().boolean("confirmed", true).end_object().print();
    else
        printf("confirmed: the changes are kept\n");
    return 0;
}

// Prints a roll-back's outcome: 0 when everything came back, else 1.
int rolled_back(const Ctx &c, int rc, const NetRollbackResult &r)
{
    if (rc < 0 && r.uiFailed == 0)
        return fail(c, "the checkpoint cannot be read: nothing was put back");
    Json j;
    j.begin_object().boolean("rolled_back", true);
    if (!c.json)
        printf("rolled back\n");
    result_out(c, j, r);
    if (c.json)
        j.end_object().print();
    return r.uiFailed == 0 && rc >= 0 ? 0 : kExitFail;
}

int rollback(Ctx &c, Args &a)
{
    c.json = a.flag("--json") || c.json;
    if (!a.end())
        return kExitUsage;
    NetCheckpoint k;
    memset(&k, 0, sizeof k);
    if (NET_CheckpointStatus(&k) == 0 && k.iState == NET_CKPT_NONE)
        return none_pending(c);
    NetRollbackResult r;
    memset(&r, 0, sizeof r);
    return rolled_back(c, NET_CheckpointRollback(&r), r);
}

int poll_cmd(Ctx &c, Args &a)
{
    c.json = a.flag("--json") || c.json;
    if (!a.end())
        return kExitUsage;
    NetRollbackResult r;
    memset(&r, 0, sizeof r);
    int rc = NET_CheckpointPoll(&r);
    if (rc != 0)
        return rolled_back(c, rc, r);
    NetCheckpoint k;
    if (!read_status(c, &k))
        return kExitFail;
    Json j;
    j.begin_object().boolean("rolled_back", false);
    if (!c.json)
        printf("nothing due: ");
    status_out(c, j, k);
    if (c.json)
        j.end_object().print();
    return 0;
}

// ---- try --------------------------------------------------------------------------------

class Fd
{
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

// The signals try answers, blocked while it lives and read from a descriptor instead; a
// child gets the mask the tool started with.
class SignalsBlocked
{
  public:
    SignalsBlocked()
    {
        sigemptyset(&set_);
        for (int s : {SIGINT, SIGTERM, SIGUSR1})
            sigaddset(&set_, s);
        sigprocmask(SIG_BLOCK, &set_, &old_);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &old_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
    const sigset_t &set() const { return set_; }
    const sigset_t &old() const { return old_; }

  private:
    sigset_t set_, old_;
};

// The next signal waiting on the descriptor, or 0.
int next_signal(int sfd)
{
    struct signalfd_siginfo si;
    return read(sfd, &si, sizeof si) == static_cast<ssize_t>(sizeof si)
               ? static_cast<int>(si.ssi_signo)
               : 0;
}

// Runs this same tool with the given arguments, standard input from /dev/null so that the
// Enter meant for try stays with try; its exit status, or 128 + the signal that ended it.
int run_self(const Ctx &c, const std::vector<const char *> &cmd, const sigset_t &mask)
{
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>("netlibctl"));
    if (c.json)
        argv.push_back(const_cast<char *>("--json"));
    if (c.secrets)
        argv.push_back(const_cast<char *>("--show-secrets"));
    for (const char *s : cmd)
        argv.push_back(const_cast<char *>(s));
    argv.push_back(nullptr);
    fflush(stdout);
    pid_t pid = fork();
    if (pid < 0)
        return -1;
    if (pid == 0) {
        sigprocmask(SIG_SETMASK, &mask, nullptr);
        int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (null >= 0)
            dup2(null, 0);
        execv("/proc/self/exe", argv.data());
        _exit(127);
    }
    int st = 0;
    while (waitpid(pid, &st, 0) < 0)
        if (errno != EINTR)
            return -1;
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

enum class End { Confirmed, ConfirmedElsewhere, CommandFailed, Signalled, Deadline };

// Prints how try ended and returns its exit status: 0 kept, 1 rolled back.
int try_end(const Ctx &c, End how, int cmdStatus, int rc, const NetRollbackResult &r)
{
    static const char *const by[] = {"confirm", "elsewhere", "command-failed", "signal",
                                     "deadline"};
    static const char *const lines[] = {
        "confirmed: the change is kept", "confirmed elsewhere: the change is kept", "",
        "interrupted: rolled back", "no confirmation before the deadline: rolled back"};
    bool kept = how == End::Confirmed || how == End::ConfirmedElsewhere;
    Json j;
    j.begin_object()
        .str("outcome", kept ? "confirmed" : "rolled-back")
        .str("by", by[static_cast<int>(how)])
        .num("command_status", cmdStatus);
    if (!c.json && how == End::CommandFailed)
        printf("the command failed (exit status %d): rolled back\n", cmdStatus);
    else if (!c.json)
        printf("%s\n", lines[static_cast<int>(how)]);
    if (!kept) {
        if (rc < 0 && r.uiFailed == 0)
            fail(c, "the checkpoint cannot be read: nothing was put back");
        result_out(c, j, r);
    }
    if (c.json)
        j.end_object().print();
    return kept ? 0 : kExitFail;
}

int keep(const Ctx &c, int cmdStatus)
{
    NetRollbackResult none;
    memset(&none, 0, sizeof none);
    if (NET_CheckpointConfirm() == 0)
        return try_end(c, End::Confirmed, cmdStatus, 0, none);
    NetCheckpoint k;
    memset(&k, 0, sizeof k);
    if (NET_CheckpointStatus(&k) == 0 && k.iState == NET_CKPT_NONE)
        return try_end(c, End::ConfirmedElsewhere, cmdStatus, 0, none);
    fail(c, "the checkpoint could not be confirmed: waiting on");
    return -1;
}

// Waits for a confirmation: a line on standard input (not its end: a closed or empty input
// leaves the other ways), SIGUSR1, the checkpoint gone (confirmed from another shell), or
// SIGINT/SIGTERM and the deadline, which roll back. The checkpoint's status is read about
// once a second.
int await(const Ctx &c, int sfd, const NetCheckpoint &mine)
{
    NetRollbackResult r;
    memset(&r, 0, sizeof r);
    bool input = true;
    for (;;) {
        NetCheckpoint now;
        memset(&now, 0, sizeof now);
        int waitMs = 1000;
        if (NET_CheckpointStatus(&now) != 0)
            return fail(c, "the checkpoint cannot be read any more: the change stays as it is");
        // Another shell confirmed it, or confirmed it and made a checkpoint of its own.
        if (now.iState == NET_CKPT_NONE || now.llCreatedUnix != mine.llCreatedUnix)
            return try_end(c, End::ConfirmedElsewhere, 0, 0, r);
        if (now.iState == NET_CKPT_EXPIRED || now.llRemainingMs <= 0) {
            int rc = NET_CheckpointPoll(&r);
            if (rc != 0)
                return try_end(c, End::Deadline, 0, rc, r);
            waitMs = 10; // the deadline is the library's, read a moment early
        } else if (now.llRemainingMs < waitMs) {
            waitMs = static_cast<int>(now.llRemainingMs);
        }
        struct pollfd fds[2] = {{sfd, POLLIN, 0}, {0, POLLIN, 0}};
        if (poll(fds, input ? 2 : 1, waitMs) < 0 && errno != EINTR)
            return fail(c, "poll: %s", strerror(errno));
        if (fds[0].revents & POLLIN) {
            int s = next_signal(sfd);
            if (s == SIGUSR1) {
                int rc = keep(c, 0);
                if (rc >= 0)
                    return rc;
            } else if (s != 0) {
                return try_end(c, End::Signalled, 0, NET_CheckpointRollback(&r), r);
            }
        }
        if (input && fds[1].revents != 0) {
            char buf[256];
            ssize_t n = read(0, buf, sizeof buf);
            if (n > 0 && memchr(buf, '\n', static_cast<size_t>(n)) != nullptr) {
                int rc = keep(c, 0);
                if (rc >= 0)
                    return rc;
            }
            if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN))
                input = false;
        }
    }
}

int try_run(Ctx &c, Args &a)
{
    const char *timeoutText = "120";
    if (!a.option("--timeout", &timeoutText))
        return kExitUsage;
    std::vector<const char *> cmd;
    for (const char *s = a.need("COMMAND"); s != nullptr; s = a.take())
        cmd.push_back(s);
    long timeout = 0;
    if (!a.end() || !parse_long(c, "--timeout", timeoutText, 1, 86400, &timeout))
        return kExitUsage;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    SignalsBlocked sig;
    Fd sfd(signalfd(-1, &sig.set(), SFD_CLOEXEC | SFD_NONBLOCK));
    if (sfd.get() < 0) {
        fail(c, "signalfd: %s", strerror(errno));
        return kExitUsage;
    }
    int rc = NET_CheckpointCreate(static_cast<unsigned int>(timeout));
    if (rc != 0) {
        fail(c, rc == NET_CKPT_BUSY
                    ? "a checkpoint is pending already: confirm it or roll it back first"
                    : "the checkpoint could not be recorded (-v shows the library's log)");
        return kExitUsage;
    }
    NetCheckpoint mine;
    memset(&mine, 0, sizeof mine);
    NET_CheckpointStatus(&mine);
    NetRollbackResult r;
    memset(&r, 0, sizeof r);
    int st = run_self(c, cmd, sig.old());
    if (st < 0) {
        NET_CheckpointRollback(&r);
        fail(c, "COMMAND could not be started: %s", strerror(errno));
        return kExitUsage;
    }
    bool stop = false, confirmed = false;
    for (int s; (s = next_signal(sfd.get())) != 0;)
        (s == SIGUSR1 ? confirmed : stop) = true;
    if (st != 0 || stop)
        return try_end(c, st != 0 ? End::CommandFailed : End::Signalled, st,
                       NET_CheckpointRollback(&r), r);
    if (confirmed && (rc = keep(c, st)) >= 0)
        return rc;
    fprintf(c.json ? stderr : stdout,
            "applied: rolled back in %ld s unless confirmed (Enter, 'netlibctl checkpoint "
            "confirm', or SIGUSR1 to pid %d)\n",
            timeout, static_cast<int>(getpid()));
    fflush(c.json ? stderr : stdout);
    return await(c, sfd.get(), mine);
}

const Command kCommands[] = {
    {"checkpoint show", "[--json]", "the pending checkpoint: state, time left, when made",
     "NET_CheckpointStatus. Exit status 0, also when there is none.", show},
    {"checkpoint confirm", "[--json]", "keep the changes made since the checkpoint",
     "Exit status 2 when no checkpoint is pending.", confirm},
    {"checkpoint rollback", "[--json]", "put back what the checkpoint recorded, now",
     "Prints what was restored and what not (package, resolv.conf, link, mtu, ipv4, ipv6,\n"
     "routes, dhcp). Exit status 0 when everything came back, 1 when something did not, 2\n"
     "when no checkpoint is pending.",
     rollback},
    {"checkpoint poll", "[--json]", "roll back if the deadline passed or the device restarted",
     "For start scripts and timers: nothing is due is no error (exit status 0). After a\n"
     "roll-back it prints what came back, exit status 1 when something did not.",
     poll_cmd},
    {"try", "[--timeout S] -- COMMAND [ARGS...]",
     "run a netlibctl command under a checkpoint; kept only when confirmed",
     "Makes a checkpoint with a deadline S seconds ahead (default 120, at most 86400), runs\n"
     "netlibctl COMMAND, and rolls back at once when it fails. Otherwise it waits: Enter on\n"
     "standard input, 'netlibctl checkpoint confirm' from another shell or SIGUSR1 keeps the\n"
     "change; SIGINT, SIGTERM or the deadline roll it back and print what came back. The end\n"
     "of standard input confirms nothing. Exit status 0 kept, 1 rolled back, 2 not started\n"
     "(bad usage, or a checkpoint is pending already).",
     try_run},
};

} // namespace

CommandList checkpoint_commands()
{
    return {kCommands, sizeof kCommands / sizeof kCommands[0]};
}
