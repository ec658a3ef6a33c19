// The configuration store's only door to libuci: open, commit or discard a package; find,
// create or delete a section; read, set or delete an option; add or remove a list value.
// Every package handle owns a context of its own, reached through the package.
#include <errno.h>
#include <stdio.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <uci.h>

#include "libnetwork.h"
#include "base/log.h"
#include "base/ports.h"

namespace
{

struct uci_element *lookup(struct uci_context *ctx, struct uci_list *list, const char *name)
{
    struct uci_element *e = nullptr;
    if (uci_lookup_next(ctx, &e, list, name) != UCI_OK)
        return nullptr;
    return e;
}

struct uci_section *lookup_section(struct uci_package *pkg, const char *name)
{
    struct uci_element *e = lookup(pkg->ctx, &pkg->sections, name);
    return e != nullptr ? uci_to_section(e) : nullptr;
}

struct uci_option *lookup_option(struct uci_section *sec, const char *name)
{
    struct uci_element *e = lookup(sec->package->ctx, &sec->options, name);
    return e != nullptr ? uci_to_option(e) : nullptr;
}

// A missing option and a list option both have no string value.
const char *string_value(struct uci_section *sec, const char *name)
{
    struct uci_option *o = lookup_option(sec, name);
    return o != nullptr && o->type == UCI_TYPE_STRING ? o->v.string : nullptr;
}

// libuci "removes" a value that a list does not hold without complaint; we fail instead.
bool list_holds(struct uci_section *sec, const char *name, const char *value)
{
    struct uci_option *o = lookup_option(sec, name);
    if (o == nullptr || o->type != UCI_TYPE_LIST)
        return false;
    struct uci_element *item;
    uci_foreach_element(&o->v.list, item)
    {
        if (strcmp(item->name, value) == 0)
            return true;
    }
    return false;
}

// A zeroed pointer to an option (or, with a null name, the section) of a section.
struct uci_ptr option_ptr(struct uci_section *sec, const char *option, const char *value)
{
    struct uci_ptr ptr;
    memset(&ptr, 0, sizeof ptr);
    ptr.p = sec->package;
    ptr.s = sec;
    ptr.option = option;
    ptr.value = value;
    return ptr;
}

struct uci_context *context_of(struct uci_section *sec)
{
    return sec->package->ctx;
}

enum class Load { Done, NoContext, Failed };

// One attempt with a fresh context; the context is freed again when the load fails.
Load load_package(const char *name, struct uci_package **pkg)
{
    *pkg = nullptr;
    struct uci_context *ctx = uci_alloc_context();
    if (ctx == nullptr)
        return Load::NoContext;
    if (uci_load(ctx, name, pkg) != UCI_OK) {
        *pkg = nullptr;
        uci_free_context(ctx);
        return Load::Failed;
    }
    return Load::Done;
}

// Our commits of one package take turns across processes. The device's libuci locks only
// the file it opened, so a writer that waited there rewrites the file it read before the
// other's rename and silently reverts that commit. The lock lives beside the save directory
// (/tmp/.uci on the device: always writable, gone at reboot). It is held only inside
// uci_commit, which calls nothing of ours, so a package opened again inside another
// configuration call never waits for itself. Without a lock file the commit still goes on,
// exactly as before.
class CommitLock
{
  public:
    explicit CommitLock(struct uci_package *pkg)
    {
        const char *dir = pkg->ctx != nullptr ? pkg->ctx->savedir : nullptr;
        const char *name = pkg->e.name != nullptr ? pkg->e.name : "";
        const char *slash = strrchr(name, '/'); // loaded by path
        if (slash != nullptr)
            name = slash + 1;
        char path[512];
        if (dir == nullptr ||
            snprintf(path, sizeof path, "%s/.%s.lock", dir, name) >= static_cast<int>(sizeof path))
            return;
        if (mkdir(dir, 0700) != 0 && errno != EEXIST)
            return;
        fd_ = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0) {
            if (errno != EINTR) {
                close(fd_);
                fd_ = -1;
            }
        }
    }
    ~CommitLock()
    {
        if (fd_ >= 0)
            close(fd_); // closing drops the lock
    }
    CommitLock(const CommitLock &) = delete;
    CommitLock &operator=(const CommitLock &) = delete;

  private:
    int fd_ = -1;
};

int commit_locked(struct uci_context *ctx, struct uci_package **pkg)
{
    CommitLock lock(*pkg);
    return uci_commit(ctx, pkg, false);
}

} // namespace

extern "C" {

const char *NET_GetUciNameByIfName(const char *pcIfName)
{
    return netlib::uci_section_of(pcIfName);
}

struct uci_package *NET_CreatePackage(const char *pcPkgName)
{
    if (pcPkgName == nullptr) {
        NET_LOG(NET_LVL_ERR, "Input param error. \n");
        return nullptr;
    }
    struct uci_package *pkg = nullptr;
    // Running out of memory at the first attempt is not logged; the retry says so.
    if (load_package(pcPkgName, &pkg) == Load::Failed)
        NET_LOG(NET_LVL_ERR, "Load uci failed \n");
    if (pkg != nullptr)
        return pkg;

    // Exactly one more attempt, after the backup copy has been put back.
    if (NET_RestoreCfgFile() != 0)
        return nullptr;
    switch (load_package(pcPkgName, &pkg)) {
    case Load::NoContext:
        NET_LOG(NET_LVL_ERR, "Alloc context failed \n");
        break;
    case Load::Failed:
        NET_LOG(NET_LVL_ERR, "Load uci failed \n");
        break;
    case Load::Done:
        break;
    }
    return pkg;
}

void NET_FreePackage(struct uci_package *pstPackage)
{
    NET_CHECK_ARGS(, "pstPackage: %p.\n", pstPackage);
    struct uci_context *ctx = pstPackage->ctx;
    uci_unload(ctx, pstPackage);
    if (ctx != nullptr)
        uci_free_context(ctx);
}

int NET_UciCommit(struct uci_package *pstPackage)
{
    NET_CHECK_ARGS(-1, "pstPackage: %p.\n", pstPackage);
    // Taken before the call: a commit replaces the package object, and a failed one may
    // leave the handle pointing at freed memory. The context stays the same.
    struct uci_context *ctx = pstPackage->ctx;
    int ret = 0;
    if (commit_locked(ctx, &pstPackage) != UCI_OK) {
        NET_LOG(NET_LVL_ERR, "commit failed\n");
        ret = -1;
    } else if (NET_BackupCfgFile() != 0) {
        // A failed backup does not fail the commit: the configuration itself is saved.
        NET_LOG(NET_LVL_ERR, "NET_BackupCfgFile() failed\n");
    }
    uci_free_context(ctx); // releases the package too
    return ret;
}

struct uci_section *NET_GetSection(struct uci_package *pstPackage, const char *pcSecName)
{
    NET_CHECK_ARGS(nullptr, "pstPackage: %p, pcSecName: %p.\n", pstPackage, pcSecName);
    struct uci_section *sec = lookup_section(pstPackage, pcSecName);
    if (sec == nullptr)
        NET_LOG(NET_LVL_ERR, "%s.\n", pcSecName);
    return sec;
}

struct uci_section *NET_CreateAndGetSection(struct uci_package *pstPackage, const char *pcSecType,
                                            const char *pcSecName)
{
    NET_CHECK_ARGS(nullptr, "pstPackage: %p, pcSecType: %p, pcSecName: %p.\n", pstPackage,
                   pcSecType, pcSecName);
    // An existing section is reused whatever its type.
    struct uci_section *sec = lookup_section(pstPackage, pcSecName);
    if (sec != nullptr)
        return sec;

    struct uci_ptr ptr;
    memset(&ptr, 0, sizeof ptr);
    ptr.p = pstPackage;
    ptr.section = pcSecName;
    ptr.value = pcSecType;
    if (uci_set(pstPackage->ctx, &ptr) != UCI_OK) {
        NET_LOG(NET_LVL_ERR, "section: %s.\n", pcSecName);
        return nullptr;
    }
    sec = lookup_section(pstPackage, pcSecName);
    if (sec == nullptr)
        NET_LOG(NET_LVL_ERR, "%s.\n", pcSecName);
    return sec;
}

int NET_DelSection(struct uci_section *pstSection)
{
    NET_CHECK_ARGS(-1, "pstSection: %p.\n", pstSection);
    struct uci_ptr ptr = option_ptr(pstSection, nullptr, nullptr);
    ptr.section = pstSection->e.name;
    if (uci_delete(context_of(pstSection), &ptr) != UCI_OK) {
        NET_LOG(NET_LVL_ERR, "section: %s.\n", pstSection->e.name);
        return -1;
    }
    return 0;
}

int NET_SetOption(struct uci_section *pstSection, const char *pcOptName, const char *pcOptVal)
{
    NET_CHECK_ARGS(-1, "pstSection: %p, pcOptName: %p, pcOptVal: %p.\n", pstSection, pcOptName,
                   pcOptVal);
    struct uci_ptr ptr = option_ptr(pstSection, pcOptName, pcOptVal);
    if (uci_set(context_of(pstSection), &ptr) != UCI_OK) {
        NET_LOG(NET_LVL_ERR, "option: %s.\n", pcOptName);
        return -1;
    }
    return 0;
}

int NET_GetOption(struct uci_section *pstSection, const char *pcOptName, char *pcOptVal,
                  unsigned int uiLen)
{
    NET_CHECK_ARGS(-1, "pstSection: %p, pcOptName: %p, pcOptVal: %p.\n", pstSection, pcOptName,
                   pcOptVal);
    // Silent on purpose: callers take an absent option as "keep the default".
    const char *value = string_value(pstSection, pcOptName);
    if (value == nullptr)
        return -1;
    // uiLen is deliberately not checked: callers pass the full size of a buffer they zeroed.
    // A capacity of 0 has room for nothing; uiLen - 1 would wrap to 4 GiB of copy.
    size_t room = uiLen > 0 ? uiLen - 1 : 0;
    if (uiLen == 0 || strlen(value) > room)
        NET_LOG(NET_LVL_ERR, "Input buffer is not enough.\n");
    // Deliberately no terminator of our own: the caller's zeroed last byte is the one.
    strncpy(pcOptVal, value, room);
    return 0;
}

int NET_DelOption(struct uci_section *pstSection, const char *pcOptName)
{
    NET_CHECK_ARGS(-1, "pstSection: %p, pcOptName: %p.\n", pstSection, pcOptName);
    // Silent on purpose: only the caller knows whether a missing option matters.
    struct uci_ptr ptr = option_ptr(pstSection, pcOptName, nullptr);
    return uci_delete(context_of(pstSection), &ptr) == UCI_OK ? 0 : -1;
}

int NET_SetUciList(struct uci_section *pstSection, const char *pcListName, const char *pcListVal)
{
    NET_CHECK_ARGS(-1, "pstSection: %p, pcListName: %p, pcListVal: %p.\n", pstSection, pcListName,
                   pcListVal);
    struct uci_ptr ptr = option_ptr(pstSection, pcListName, pcListVal);
    if (uci_add_list(context_of(pstSection), &ptr) != UCI_OK) {
        NET_LOG(NET_LVL_ERR, "Add uci list failed, list: %s.\n", pcListName);
        return -1;
    }
    return 0;
}

int NET_DelUciList(struct uci_section *pstSection, const char *pcListName, const char *pcListVal)
{
    NET_CHECK_ARGS(-1, "pstSection: %p, pcListName: %p, pcListVal: %p.\n", pstSection, pcListName,
                   pcListVal);
    struct uci_ptr ptr = option_ptr(pstSection, pcListName, pcListVal);
    ptr.section = pstSection->e.name;
    if (!list_holds(pstSection, pcListName, pcListVal) ||
        uci_del_list(context_of(pstSection), &ptr) != UCI_OK) {
        NET_LOG(NET_LVL_ERR, "Delete uci list failed, list: %s.\n", pcListName);
        return -1;
    }
    return 0;
}

} // extern "C"
