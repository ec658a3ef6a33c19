// libuci (uci/): parser, writer, lookups, edits, delta files, commit and error codes.
#include "sandbox.h"
#include "uci.h"

#include <fcntl.h>
#include <stdlib.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace
{

// A context whose config and save directories are a fresh temporary directory.
struct Uci {
    std::string dir, conf, save;
    uci_context *ctx = nullptr;

    Uci()
    {
        char tmpl[] = "/tmp/ucitest.XXXXXX";
        dir = mkdtemp(tmpl);
        conf = dir + "/config";
        save = dir + "/save";
        mkdir(conf.c_str(), 0755);
        ctx = uci_alloc_context();
        uci_set_confdir(ctx, conf.c_str());
        uci_set_savedir(ctx, save.c_str());
    }
    ~Uci()
    {
        uci_free_context(ctx);
        sandbox::sh("rm -rf '" + dir + "'");
    }
    void put(const std::string &name, const std::string &text)
    {
        sandbox::write_file(conf + "/" + name, text, 0644);
    }
    std::string file(const std::string &name) { return sandbox::read_file(conf + "/" + name); }
    uci_package *load(const std::string &name)
    {
        uci_package *p = nullptr;
        EXPECT_EQ(UCI_OK, uci_load(ctx, name.c_str(), &p)) << name;
        return p;
    }
    int set(const std::string &tuple)
    {
        std::vector<char> s(tuple.begin(), tuple.end());
        s.push_back('\0');
        uci_ptr ptr{};
        int rc = uci_lookup_ptr(ctx, &ptr, s.data(), true);
        return rc ? rc : uci_set(ctx, &ptr);
    }
    int commit(const std::string &name)
    {
        uci_package *p = uci_lookup_package(ctx, name.c_str());
        return p ? uci_commit(ctx, &p, false) : UCI_ERR_NOTFOUND;
    }
};

std::string exported(uci_context *ctx, uci_package *p, bool header = false)
{
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    EXPECT_EQ(UCI_OK, uci_export(ctx, f, p, header));
    fclose(f);
    std::string out(buf, len);
    free(buf);
    return out;
}

// Parses text through uci_import; returns the error code and the export (with names).
std::pair<int, std::string> parse(const std::string &text, int flags = -1)
{
    uci_context *ctx = uci_alloc_context();
    if (flags >= 0)
        ctx->flags = (uci_flags)flags;
    ctx->flags = (uci_flags)(ctx->flags | UCI_FLAG_EXPORT_NAME);
    FILE *f = fmemopen((void *)text.data(), text.size(), "r");
    uci_package *p = nullptr;
    int rc = uci_import(ctx, f, "t", &p, true);
    fclose(f);
    std::string out = rc == 0 ? exported(ctx, p) : "";
    uci_free_context(ctx);
    return {rc, out};
}

struct ParseCase {
    const char *what;
    std::string in;
    std::string out; // export with section names
};

TEST(UciParse, FilesAsTheDeviceWritesThem)
{
    const ParseCase cases[] = {
        {"written form",
         "\nconfig interface 'lan'\n\toption proto 'static'\n\tlist dns '1.1.1.1'\n"
         "\tlist dns '8.8.8.8'\n\toption q 'it'\\''s \"x\"'\n\nconfig route\n\n",
         "\nconfig interface 'lan'\n\toption proto 'static'\n\tlist dns '1.1.1.1'\n"
         "\tlist dns '8.8.8.8'\n\toption q 'it'\\''s \"x\"'\n\nconfig route 'cfg02c8b4'\n\n"},
        {"hand-written quoting", "config t 'n'\n option a \"x\\\"y\\\\z\\n\"\n option b x\\ y\n",
         "\nconfig t 'n'\n\toption a 'x\"y\\zn'\n\toption b 'x y'\n\n"},
        {"glued segments", "config t n\n\toption a \"x\"y'z'\n\toption b 'it'\\''s'\n",
         "\nconfig t 'n'\n\toption a 'xyz'\n\toption b 'it'\\''s'\n\n"},
        {"single quotes keep backslashes", "config t n\n\toption a 'c:\\dir\\n'\n",
         "\nconfig t 'n'\n\toption a 'c:\\dir\\n'\n\n"},
        {"comments", "# head\nconfig t n # tail\n\t# inside\n\toption a b#c\n\toption d 'e' # x\n",
         "\nconfig t 'n'\n\toption a 'b'\n\toption d 'e'\n\n"},
        {"short keywords and package line", "package net\nc t n\no a 1\nl b 2\nl b 3\n",
         "\nconfig t 'n'\n\toption a '1'\n\tlist b '2'\n\tlist b '3'\n\n"},
        {"multi-line values", "config t n\n\toption a 'one\ntwo'\n\toption b \"x\\\ny\nz\"\n",
         "\nconfig t 'n'\n\toption a 'one\ntwo'\n\toption b 'xy\nz'\n\n"},
        {"CRLF and no final newline", "config t n\r\n\toption a 'b'\r\n\toption c d",
         "\nconfig t 'n'\n\toption a 'b'\n\toption c 'd'\n\n"},
        {"repeated option: last wins in place",
         "config t n\n\toption a 1\n\toption b 2\n"
         "\toption a 33\n",
         "\nconfig t 'n'\n\toption a '33'\n\toption b '2'\n\n"},
        {"string then list, list then string",
         "config t n\n\toption a 1\n\tlist a 2\n\tlist b x\n\toption z 0\n\toption b y\n",
         "\nconfig t 'n'\n\tlist a '1'\n\tlist a '2'\n\toption b 'y'\n\toption z '0'\n\n"},
        {"empty values", "config t n\n\toption a ''\n\toption b\n\tlist c ''\n",
         "\nconfig t 'n'\n\tlist c ''\n\n"},
        {"re-opened section", "config t n\n\toption a 1\nconfig u m\nconfig t n\n\toption b 2\n",
         "\nconfig t 'n'\n\toption a '1'\n\toption b '2'\n\nconfig u 'm'\n\n"},
        {"semicolon ends the line", "config t n\n\toption a b;option c d\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"line continuation", "config t n\n\toption a foo\\\nbar\n\toption b \\\n   baz\n",
         "\nconfig t 'n'\n\toption a 'foobar'\n\toption b 'baz'\n\n"},
        {"blank lines and indentation", "\n\n   \t\n  config t n\n\n\t\toption a b\n\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"empty file", "", "\n"},
        {"only comments", "# nothing\n   # here\n", "\n"},
        {"raw bytes inside quotes", "config t n\n\toption a 'tab\there \xc3\xa9 # ; \"'\n",
         "\nconfig t 'n'\n\toption a 'tab\there \xc3\xa9 # ; \"'\n\n"},
        {"anonymous names count every section",
         "config interface\nconfig interface\nconfig x named\nconfig route\n",
         "\nconfig interface 'cfg016d96'\n\nconfig interface 'cfg026d96'\n\nconfig x 'named'\n"
         "\nconfig route 'cfg04c8b4'\n\n"},
    };
    for (const auto &c : cases) {
        auto r = parse(c.in);
        EXPECT_EQ(UCI_OK, r.first) << c.what;
        EXPECT_EQ(c.out, r.second) << c.what;
    }
}

TEST(UciParse, AnonymousNameHash)
{
    const std::pair<const char *, const char *> types[] = {
        {"interface", "6d96"}, {"route", "c8b4"},      {"rule", "92bd"},
        {"zone", "dc81"},      {"forwarding", "ad58"}, {"host", "fe63"},
        {"device", "0f15"},    {"wifi-iface", "3579"}, {"t", "b619"},
    };
    for (const auto &t : types) {
        auto r = parse(std::string("config ") + t.first + "\n");
        EXPECT_EQ("\nconfig " + std::string(t.first) + " 'cfg01" + t.second + "'\n\n", r.second);
    }
}

struct BadCase {
    const char *what;
    std::string in;
    const char *reason;
    int line;
};

TEST(UciParse, MalformedInputIsAParseError)
{
    const BadCase cases[] = {
        {"keyword alone", "config\n", "invalid command", 1},
        {"unknown keyword", "\nconfog t\n", "invalid command", 2},
        {"option first", "option a b\n", "option/list command found before the first section", 1},
        {"bad type", "config 'a b'\n", "invalid character in type field", 1},
        {"bad name", "config t 'a-b'\n", "invalid character in name field", 1},
        {"bad option name", "config t\n\toption 'a.b' c\n", "invalid character in name field", 2},
        {"too many", "config t n\n\toption a b c\n", "too many arguments", 2},
        {"no type", "config \n", "insufficient arguments", 1},
        {"bad package line", "package 'a b'\n", "invalid package name", 1},
        {"open single quote", "config t\n\toption a 'x\n\n", "EOF with unterminated '", 4},
        {"open double quote", "config t\n\toption a \"x\\\"\n", "EOF with unterminated \"", 3},
        {"other type", "config a x\nconfig b x\n",
         "section of different type overwrites prior section with same name", 2},
        {"NUL byte", std::string("config t\n\toption a b") + '\0' + "c\n", "invalid character", 2},
        {"line too long", "config t\n\toption a '" + std::string(70000, 'x') + "'\n",
         "line too long", 2},
    };
    for (const auto &c : cases) {
        uci_context *ctx = uci_alloc_context();
        FILE *f = fmemopen((void *)c.in.data(), c.in.size(), "r");
        uci_package *p = nullptr;
        EXPECT_EQ(UCI_ERR_PARSE, uci_import(ctx, f, "t", &p, true)) << c.what;
        fclose(f);
        EXPECT_EQ(nullptr, p) << c.what;
        EXPECT_TRUE(uci_list_empty(&ctx->root)) << c.what;
        char *msg = nullptr;
        uci_get_errorstr(ctx, &msg, "uci");
        std::string expect = std::string("uci: Parse error (") + c.reason + ") at line " +
                             std::to_string(c.line) + ",";
        EXPECT_EQ(expect, std::string(msg).substr(0, expect.size())) << c.what;
        free(msg);
        uci_free_context(ctx);
    }
}

TEST(UciParse, NonStrictSkipsBadLines)
{
    auto r = parse("config t n\n\toption a b c\n\tbogus\n\toption d e\nconfig t2 n\n", 0);
    EXPECT_EQ(UCI_OK, r.first);
    EXPECT_EQ("\nconfig t2 'n'\n\toption a 'b'\n\toption d 'e'\n\n", r.second);
}

TEST(UciParse, EveryTruncationParsesOrFails)
{
    const std::string full = "package net\n\nconfig interface 'lan'\n\toption proto \"st\\\"a\"\n"
                             "\tlist dns '1.1.1.1'\n\toption q 'it'\\''s'\n# c\nconfig route\n";
    for (size_t n = 0; n <= full.size(); n++) {
        auto r = parse(full.substr(0, n));
        EXPECT_TRUE(r.first == UCI_OK || r.first == UCI_ERR_PARSE) << n;
    }
}

TEST(UciLoad, OversizedFileIsRefused)
{
    Uci u;
    std::string big = "config t n\n";
    while (big.size() <= 4 * 1024 * 1024)
        big += "\toption a '" + std::string(1000, 'y') + "'\n";
    u.put("big", big);
    uci_package *p = nullptr;
    EXPECT_EQ(UCI_ERR_PARSE, uci_load(u.ctx, "big", &p));
    EXPECT_EQ(nullptr, p);
}

TEST(UciLoad, ErrorCodes)
{
    Uci u;
    u.put("net", "config t n\n");
    u.put("bad", "config t n x\n");
    mkdir((u.conf + "/adir").c_str(), 0755);
    uci_package *p = nullptr;
    const std::pair<const char *, int> cases[] = {
        {"missing", UCI_ERR_NOTFOUND}, {".hidden", UCI_ERR_NOTFOUND}, {"adir", UCI_ERR_NOTFOUND},
        {"a name", UCI_ERR_INVAL},     {"bad", UCI_ERR_PARSE},        {"net", UCI_OK},
        {"net", UCI_ERR_DUPLICATE},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.second, uci_load(u.ctx, c.first, &p)) << c.first;
        EXPECT_EQ(c.second, u.ctx->err) << c.first;
    }
    EXPECT_EQ(UCI_ERR_INVAL, uci_unload(u.ctx, nullptr));
    EXPECT_EQ(UCI_OK, uci_unload(u.ctx, p));
    EXPECT_TRUE(uci_list_empty(&u.ctx->root));

    // by path: named after the file, no change tracking
    EXPECT_EQ(UCI_OK, uci_load(u.ctx, (u.conf + "/net").c_str(), &p));
    EXPECT_STREQ("net", p->e.name);
    EXPECT_FALSE(p->has_delta);
}

struct PtrCase {
    const char *str;
    bool extended;
    int rc;
    bool complete;
    uci_type target;
    const char *section; // resolved section name, or null
    const char *value;
};

TEST(UciLookup, TupleStrings)
{
    Uci u;
    u.put("net", "\nconfig interface 'lan'\n\toption proto 'static'\n\nconfig interface\n"
                 "\nconfig route\n\toption x 'y'\n");
    const PtrCase cases[] = {
        {"net", false, 0, true, UCI_TYPE_PACKAGE, nullptr, nullptr},
        {"net.lan", false, 0, true, UCI_TYPE_SECTION, "lan", nullptr},
        {"net.lan.proto", false, 0, true, UCI_TYPE_OPTION, "lan", nullptr},
        {"net.lan.proto=a=b", false, 0, true, UCI_TYPE_OPTION, "lan", "a=b"},
        {"net.lan.mtu", false, 0, false, UCI_TYPE_OPTION, "lan", nullptr},
        {"net.wan", false, 0, false, UCI_TYPE_SECTION, nullptr, nullptr},
        {"net.@interface[0]", true, 0, true, UCI_TYPE_SECTION, "lan", nullptr},
        {"net.@interface[1]", true, 0, true, UCI_TYPE_SECTION, "cfg026d96", nullptr},
        {"net.@interface[-1].proto", true, 0, false, UCI_TYPE_OPTION, "cfg026d96", nullptr},
        {"net.@[2].x", true, 0, true, UCI_TYPE_OPTION, "cfg03c8b4", nullptr},
        {"net.@[-3]", true, 0, true, UCI_TYPE_SECTION, "lan", nullptr},
        {"net.@route[1]", true, 0, false, UCI_TYPE_SECTION, nullptr, nullptr},
        {"net.@interface[0]", false, UCI_ERR_INVAL, false, UCI_TYPE_SECTION, nullptr, nullptr},
        {"net.@interface", true, UCI_ERR_INVAL, false, UCI_TYPE_SECTION, nullptr, nullptr},
        {"net.@interface[x]", true, UCI_ERR_INVAL, false, UCI_TYPE_SECTION, nullptr, nullptr},
        {"net.a.b.c", true, UCI_ERR_PARSE, false, UCI_TYPE_UNSPEC, nullptr, nullptr},
        {"net.lan.bad-name", true, UCI_ERR_PARSE, false, UCI_TYPE_UNSPEC, nullptr, nullptr},
        {"net.lan.proto=a\x01", true, UCI_ERR_PARSE, false, UCI_TYPE_UNSPEC, nullptr, nullptr},
        {"n t", true, UCI_ERR_PARSE, false, UCI_TYPE_UNSPEC, nullptr, nullptr},
        {"nope.x", true, UCI_ERR_NOTFOUND, false, UCI_TYPE_SECTION, nullptr, nullptr},
    };
    for (const auto &c : cases) {
        std::string s = c.str;
        uci_ptr ptr{};
        EXPECT_EQ(c.rc, uci_lookup_ptr(u.ctx, &ptr, &s[0], c.extended)) << c.str;
        EXPECT_EQ(c.complete, (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0) << c.str;
        EXPECT_EQ(c.target, ptr.target) << c.str;
        if (c.section) {
            ASSERT_NE(nullptr, ptr.s) << c.str;
            EXPECT_STREQ(c.section, ptr.s->e.name) << c.str;
            EXPECT_STREQ(c.section, ptr.section) << c.str;
        } else if (c.rc == 0) {
            EXPECT_EQ(nullptr, ptr.s) << c.str;
        }
        if (c.value) {
            EXPECT_STREQ(c.value, ptr.value) << c.str;
        }
    }
    uci_package *p = uci_lookup_package(u.ctx, "net");
    ASSERT_NE(nullptr, p);
    uci_element *e = nullptr;
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_lookup_next(u.ctx, &e, &p->sections, "LAN"));
    EXPECT_EQ(nullptr, e);
    EXPECT_EQ(UCI_ERR_NOTFOUND, u.ctx->err);
    uci_section *s = uci_lookup_section(u.ctx, p, "lan");
    EXPECT_STREQ("static", uci_lookup_option_string(u.ctx, s, "proto"));
}

struct EditCase {
    const char *what;
    std::vector<std::string> sets; // tuples through uci_set (lookup extended)
    std::vector<int> rcs;
    const char *after; // file after commit
};

const char *kBase = "# hand-written\nconfig interface 'lan'\n\toption proto 'static'\n"
                    "\toption ipaddr '10.0.0.1'\n\tlist dns 'a'\n\nconfig interface\n"
                    "\toption x 'y'\n";

TEST(UciEdit, SetThroughCommit)
{
    const EditCase cases[] = {
        {"no-op set leaves the bytes", {"net.lan.proto=static"}, {0}, nullptr},
        {"same length in place",
         {"net.lan.proto=dhcp00"},
         {0},
         "\nconfig interface 'lan'\n\toption proto 'dhcp00'\n\toption ipaddr '10.0.0.1'\n"
         "\tlist dns 'a'\n\nconfig interface\n\toption x 'y'\n\n"},
        {"other length keeps the position, new option goes last",
         {"net.lan.proto=dhcp", "net.lan.mtu=1500"},
         {0, 0},
         "\nconfig interface 'lan'\n\toption proto 'dhcp'\n\toption ipaddr '10.0.0.1'\n"
         "\tlist dns 'a'\n\toption mtu '1500'\n\nconfig interface\n\toption x 'y'\n\n"},
        {"list to string, empty value deletes",
         {"net.lan.dns=b", "net.lan.ipaddr=", "net.lan.nothing="},
         {0, 0, 0},
         "\nconfig interface 'lan'\n\toption proto 'static'\n\toption dns 'b'\n"
         "\nconfig interface\n\toption x 'y'\n\n"},
        {"new section, type change makes the anonymous one named",
         {"net.wan=interface", "net.wan.proto=pppoe", "net.@interface[1]=iface2"},
         {0, 0, 0},
         "\nconfig interface 'lan'\n\toption proto 'static'\n\toption ipaddr '10.0.0.1'\n"
         "\tlist dns 'a'\n\nconfig iface2 'cfg026d96'\n\toption x 'y'\n\nconfig interface 'wan'"
         "\n\toption proto 'pppoe'\n\n"},
        {"errors change nothing",
         {"net.wan.proto=x", "net.lan=bad type", "net.@x[3]=t", "net.@x[3].o=v"},
         {UCI_ERR_INVAL, UCI_ERR_INVAL, UCI_ERR_INVAL, UCI_ERR_INVAL},
         nullptr},
        {"quotes and newlines are written raw",
         {"net.lan.q=it's \"x\" \\ #;\nnext"},
         {0},
         "\nconfig interface 'lan'\n\toption proto 'static'\n\toption ipaddr '10.0.0.1'\n"
         "\tlist dns 'a'\n\toption q 'it'\\''s \"x\" \\ #;\nnext'\n\nconfig interface\n"
         "\toption x 'y'\n\n"},
        {"set back and forth still rewrites",
         {"net.lan.proto=dhcp", "net.lan.proto=static"},
         {0, 0},
         "\nconfig interface 'lan'\n\toption proto 'static'\n\toption ipaddr '10.0.0.1'\n"
         "\tlist dns 'a'\n\nconfig interface\n\toption x 'y'\n\n"},
    };
    for (const auto &c : cases) {
        Uci u;
        u.put("net", kBase);
        u.load("net");
        for (size_t i = 0; i < c.sets.size(); i++)
            EXPECT_EQ(c.rcs[i], u.set(c.sets[i])) << c.what << ": " << c.sets[i];
        EXPECT_EQ(UCI_OK, u.commit("net")) << c.what;
        EXPECT_EQ(c.after ? c.after : kBase, u.file("net")) << c.what;
        // what was written reads back the same
        uci_context *again = uci_alloc_context();
        uci_set_confdir(again, u.conf.c_str());
        uci_set_savedir(again, u.save.c_str());
        uci_package *p = nullptr;
        EXPECT_EQ(UCI_OK, uci_load(again, "net", &p)) << c.what;
        if (c.after) {
            EXPECT_EQ(c.after, exported(again, p)) << c.what;
        }
        uci_free_context(again);
    }
}

TEST(UciEdit, ListsDeleteRenameReorder)
{
    Uci u;
    u.put("net", kBase);
    uci_package *p = u.load("net");
    uci_section *lan = uci_lookup_section(u.ctx, p, "lan");
    uci_ptr ptr{};
    ptr.p = p;
    ptr.s = lan;
    ptr.option = "dns";
    for (const char *v : {"b", "a", "c", ""}) {
        ptr.value = v;
        EXPECT_EQ(UCI_OK, uci_add_list(u.ctx, &ptr)) << v;
    }
    ptr = uci_ptr{};
    ptr.p = p;
    ptr.s = lan;
    ptr.option = "dns";
    ptr.value = "a";
    EXPECT_EQ(UCI_OK, uci_del_list(u.ctx, &ptr)); // both "a" go
    ptr.value = "1";
    EXPECT_EQ(UCI_OK, uci_delete(u.ctx, &ptr)); // index 1: "c"
    ptr.value = "x";
    EXPECT_EQ(1, uci_delete(u.ctx, &ptr)); // not an index
    ptr.value = "9";
    EXPECT_EQ(UCI_OK, uci_delete(u.ctx, &ptr)); // out of range: nothing

    ptr = uci_ptr{};
    ptr.p = p;
    ptr.s = lan;
    ptr.option = "proto";
    ptr.value = "dhcp";
    EXPECT_EQ(UCI_OK, uci_del_list(u.ctx, &ptr)); // a string: untouched
    EXPECT_EQ(UCI_OK, uci_add_list(u.ctx, &ptr)); // string becomes a list in place
    ptr.option = "nope";
    ptr.o = nullptr;
    ptr.flags = {};
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_delete(u.ctx, &ptr));

    ptr = uci_ptr{};
    ptr.p = p;
    ptr.section = "lan";
    ptr.option = "ipaddr";
    ptr.value = "addr";
    EXPECT_EQ(UCI_OK, uci_rename(u.ctx, &ptr));
    uci_section *anon = uci_to_section(list_to_element(p->sections.prev));
    EXPECT_EQ(UCI_OK, uci_reorder_section(u.ctx, anon, 0));
    uci_section *added = nullptr;
    EXPECT_EQ(UCI_OK, uci_add_section(u.ctx, p, "route", &added));
    EXPECT_STREQ("cfg03c8b4", added->e.name);

    EXPECT_EQ(UCI_OK, uci_commit(u.ctx, &p, false));
    EXPECT_EQ("\nconfig interface\n\toption x 'y'\n\nconfig interface 'lan'\n"
              "\tlist proto 'static'\n\tlist proto 'dhcp'\n\toption addr '10.0.0.1'\n"
              "\tlist dns 'b'\n\tlist dns ''\n\nconfig route\n\n",
              u.file("net"));
    EXPECT_EQ("", sandbox::read_file(u.save + "/net")); // folded in and emptied

    ptr = uci_ptr{};
    ptr.p = p;
    ptr.section = "lan";
    EXPECT_EQ(UCI_OK, uci_delete(u.ctx, &ptr));
    EXPECT_EQ(nullptr, ptr.s);
    ptr = uci_ptr{};
    ptr.p = p;
    ptr.section = "lan";
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_delete(u.ctx, &ptr));
    EXPECT_EQ(UCI_OK, uci_commit(u.ctx, &p, false));
    EXPECT_EQ("\nconfig interface\n\toption x 'y'\n\nconfig route\n\n", u.file("net"));
}

TEST(UciDelta, SaveWritesTheLinesTheCliWrites)
{
    Uci u;
    u.put("net", kBase);
    uci_package *p = u.load("net");
    EXPECT_EQ(0, u.set("net.lan.proto=it's"));
    EXPECT_EQ(0, u.set("net.wan=interface"));
    uci_section *s = nullptr;
    EXPECT_EQ(0, uci_add_section(u.ctx, p, "route", &s));
    uci_ptr ptr{};
    ptr.p = p;
    ptr.section = "lan";
    ptr.option = "dns";
    ptr.value = "8.8.8.8";
    EXPECT_EQ(0, uci_add_list(u.ctx, &ptr));
    ptr.value = "a";
    EXPECT_EQ(0, uci_del_list(u.ctx, &ptr));
    ptr = uci_ptr{};
    ptr.p = p;
    ptr.section = "lan";
    ptr.option = "ipaddr";
    EXPECT_EQ(0, uci_delete(u.ctx, &ptr));
    ptr = uci_ptr{};
    ptr.p = p;
    ptr.section = "wan";
    ptr.value = "wan2";
    EXPECT_EQ(0, uci_rename(u.ctx, &ptr));
    EXPECT_EQ(0, uci_reorder_section(u.ctx, s, 0));
    EXPECT_EQ(0, uci_save(u.ctx, p));
    EXPECT_EQ("net.lan.proto='it'\\''s'\nnet.wan='interface'\n+net.cfg04c8b4='route'\n"
              "|net.lan.dns='8.8.8.8'\n~net.lan.dns='a'\n-net.lan.ipaddr\n@net.wan='wan2'\n"
              "^net.cfg04c8b4='0'\n",
              sandbox::read_file(u.save + "/net"));
    EXPECT_EQ(kBase, u.file("net")); // saving does not touch the config

    // a second context sees the saved changes at load
    uci_context *other = uci_alloc_context();
    uci_set_confdir(other, u.conf.c_str());
    uci_set_savedir(other, u.save.c_str());
    uci_package *q = nullptr;
    ASSERT_EQ(0, uci_load(other, "net", &q));
    EXPECT_EQ("\nconfig route\n\nconfig interface 'lan'\n\toption proto 'it'\\''s'\n"
              "\tlist dns '8.8.8.8'\n\nconfig interface\n\toption x 'y'\n\n"
              "config interface 'wan2'\n\n",
              exported(other, q));
    uci_free_context(other);
}

TEST(UciDelta, ForeignDeltaFilesAreReplayedAndBadLinesSkipped)
{
    Uci u;
    u.put("net", kBase);
    mkdir(u.save.c_str(), 0700);
    sandbox::write_file(u.save + "/net",
                        "net.lan.mtu='1500'\n"
                        "other.lan.mtu='1'\n"         // other package
                        "net.bad-name.x='1'\n"        // invalid section name
                        "net.lan.bad-opt='1'\n"       // invalid option name
                        "net.lan.ctl='a\x01'\n"       // control byte
                        "net.lan.novalue\n"           // value missing
                        "net.gone.x='1'\n"            // section missing
                        "@net.lan='bad name'\n"       // rename to invalid name
                        "net.lan.text='two\nlines'\n" // a value over two lines
                        "-net.cfg026d96\n"            // anonymous section by name
                        "+net.cfg05c8b4='route'\n",
                        0600);
    uci_package *p = u.load("net");
    EXPECT_EQ("\nconfig interface 'lan'\n\toption proto 'static'\n\toption ipaddr '10.0.0.1'\n"
              "\tlist dns 'a'\n\toption mtu '1500'\n\toption text 'two\nlines'\n\n"
              "config route\n\n",
              exported(u.ctx, p));
    int saved = 0;
    uci_element *e;
    uci_foreach_element(&p->saved_delta, e) saved++;
    EXPECT_EQ(4, saved);
    // nothing changed in this session, but the pending lines are committed
    EXPECT_EQ(0, uci_commit(u.ctx, &p, false));
    EXPECT_EQ(exported(u.ctx, p), u.file("net"));
    EXPECT_EQ("", sandbox::read_file(u.save + "/net"));
}

// A writer killed inside write(2) leaves a torn line; its open quote must not swallow the
// changes saved after it.
TEST(UciDelta, TornLastLineDoesNotEatLaterChanges)
{
    Uci u;
    u.put("net", kBase);
    mkdir(u.save.c_str(), 0700);
    sandbox::write_file(u.save + "/net", "net.lan.a='1'\nnet.lan.pad='xxxx", 0600);
    uci_package *p = u.load("net");
    EXPECT_EQ(0, u.set("net.lan.b=2"));
    EXPECT_EQ(0, uci_commit(u.ctx, &p, false));
    EXPECT_EQ("\nconfig interface 'lan'\n\toption proto 'static'\n\toption ipaddr '10.0.0.1'\n"
              "\tlist dns 'a'\n\toption a '1'\n\toption b '2'\n\nconfig interface\n"
              "\toption x 'y'\n\n",
              u.file("net"));
}

TEST(UciCommit, KeepsModeWritesThroughSymlinksAndLeaksNothing)
{
    Uci u;
    u.put("real", kBase);
    chmod((u.conf + "/real").c_str(), 0640);
    ASSERT_EQ(0, symlink((u.conf + "/real").c_str(), (u.conf + "/net").c_str()));
    {
        sandbox::FdCheck fds;
        uci_package *p = u.load("net");
        EXPECT_EQ(0, u.set("net.lan.proto=dhcp"));
        EXPECT_EQ(0, uci_commit(u.ctx, &p, false));
        EXPECT_EQ(0, uci_unload(u.ctx, p));
    }
    struct stat st;
    ASSERT_EQ(0, lstat((u.conf + "/net").c_str(), &st));
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    ASSERT_EQ(0, stat((u.conf + "/real").c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
    EXPECT_NE(std::string::npos, u.file("real").find("option proto 'dhcp'"));
    EXPECT_EQ("", sandbox::sh_out("ls -A '" + u.conf + "' | grep uci- || true"));
}

TEST(UciCommit, ImportedPackageWithOverwriteAndEmptyPackage)
{
    Uci u;
    const std::string text = "package fw\nconfig zone z\n\toption name lan\n";
    FILE *f = fmemopen((void *)text.data(), text.size(), "r");
    uci_package *p = nullptr;
    ASSERT_EQ(0, uci_import(u.ctx, f, nullptr, &p, false));
    fclose(f);
    EXPECT_STREQ("fw", p->e.name);
    EXPECT_EQ("package fw\n\nconfig zone 'z'\n\toption name 'lan'\n\n", exported(u.ctx, p, true));
    EXPECT_EQ(UCI_ERR_INVAL, uci_commit(u.ctx, &p, false)); // no path
    EXPECT_EQ(0, uci_commit(u.ctx, &p, true));
    EXPECT_EQ("\nconfig zone 'z'\n\toption name 'lan'\n\n", u.file("fw"));

    u.put("empty", "config t n\n");
    uci_package *e = u.load("empty");
    EXPECT_EQ(0, u.set("empty.n="));
    EXPECT_EQ(0, uci_commit(u.ctx, &e, false));
    EXPECT_EQ("\n", u.file("empty"));

    char **list = nullptr;
    ASSERT_EQ(0, uci_list_configs(u.ctx, &list));
    std::vector<std::string> names;
    for (char **n = list; *n; n++)
        names.push_back(*n);
    free(list);
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"empty", "fw"}), names);
}

TEST(UciContext, DefaultsAndErrorText)
{
    uci_context *ctx = uci_alloc_context();
    EXPECT_STREQ("/etc/config", ctx->confdir);
    EXPECT_STREQ("/tmp/.uci", ctx->savedir);
    EXPECT_EQ(9, (int)ctx->flags);
    EXPECT_EQ(0, uci_set_savedir(ctx, "/x"));
    EXPECT_EQ(0, uci_add_delta_path(ctx, "/y"));
    EXPECT_EQ(UCI_ERR_DUPLICATE, uci_add_delta_path(ctx, "/y"));
    std::vector<std::string> path;
    uci_element *e;
    uci_foreach_element(&ctx->delta_path, e) path.push_back(e->name);
    EXPECT_EQ((std::vector<std::string>{"/tmp/.uci", "/y", "/x"}), path);

    const std::pair<int, const char *> texts[] = {
        {UCI_OK, "x: Success"},       {UCI_ERR_NOTFOUND, "x: Entry not found"},
        {UCI_ERR_IO, "x: I/O error"}, {UCI_ERR_DUPLICATE, "x: Duplicate entry"},
        {42, "x: Unknown error"},
    };
    for (const auto &t : texts) {
        ctx->err = t.first;
        char *s = nullptr;
        uci_get_errorstr(ctx, &s, "x");
        EXPECT_STREQ(t.second, s);
        free(s);
    }
    char *s = nullptr;
    uci_get_errorstr(nullptr, &s, nullptr);
    EXPECT_STREQ("Invalid argument", s);
    free(s);
    EXPECT_TRUE(uci_validate_text("a\tb\r\n"));
    EXPECT_FALSE(uci_validate_text("a\x1b"));
    uci_free_context(ctx);
}

TEST(UciContext, ParseArgument)
{
    const std::string text = "set net.lan.x='a b' \"c\\\"d\" # rest\nnext 'multi\nline'\n";
    FILE *f = fmemopen((void *)text.data(), text.size(), "r");
    uci_context *ctx = uci_alloc_context();
    char *str = nullptr, *arg = nullptr;
    std::vector<std::string> args;
    for (int i = 0; i < 8; i++) {
        ASSERT_EQ(0, uci_parse_argument(ctx, f, &str, &arg));
        args.push_back(arg ? arg : "<eol>");
    }
    EXPECT_EQ((std::vector<std::string>{"set", "net.lan.x=a b", "c\"d", "<eol>", "next",
                                        "multi\nline", "<eol>", "<eol>"}),
              args);
    uci_free_context(ctx);
    fclose(f);
}

// The real paths: /etc/config and /tmp/.uci, as on the device.
TEST(UciDefaultDirs, EtcConfigNetwork)
{
    REQUIRE_SANDBOX();
    sandbox::write_file("/etc/config/network",
                        "\nconfig interface 'loopback'\n\toption ifname 'lo'\n\n"
                        "config interface 'lan'\n\toption proto 'dhcp'\n\n");
    uci_context *ctx = uci_alloc_context();
    uci_ptr ptr{};
    char tuple[] = "network.lan.proto=static";
    ASSERT_EQ(0, uci_lookup_ptr(ctx, &ptr, tuple, true)); // loads the package
    ASSERT_EQ(0, uci_set(ctx, &ptr));
    ASSERT_EQ(0, uci_save(ctx, ptr.p));
    EXPECT_EQ("network.lan.proto='static'\n", sandbox::read_file("/tmp/.uci/network"));
    uci_package *p = ptr.p;
    ASSERT_EQ(0, uci_commit(ctx, &p, false));
    EXPECT_EQ("\nconfig interface 'loopback'\n\toption ifname 'lo'\n\n"
              "config interface 'lan'\n\toption proto 'static'\n\n",
              sandbox::read_file("/etc/config/network"));
    EXPECT_EQ("", sandbox::read_file("/tmp/.uci/network"));
    EXPECT_STREQ("/etc/config/network", p->path);
    uci_free_context(ctx);
}

} // namespace

// uci_list_configs counts the names of the directory, allocates, then reads the directory
// again to fill the block: a longer name that appears in between was copied past its end.
TEST(UciList, ListingWhileTheDirectoryChanges)
{
    REQUIRE_SANDBOX();
    char tmpl[] = "/tmp/configs.XXXXXX";
    const std::string dir = mkdtemp(tmpl);
    const std::string shortName = "a", longName(200, 'b');
    pid_t churn = fork();
    ASSERT_GE(churn, 0);
    if (churn == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const std::string a = dir + "/" + shortName, b = dir + "/" + longName;
        for (;;) {
            close(open(a.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink(b.c_str());
            close(open(b.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink(a.c_str());
        }
    }
    struct uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, dir.c_str());
    int listings = 0, odd = 0;
    for (auto start = std::chrono::steady_clock::now();
         std::chrono::steady_clock::now() - start < std::chrono::seconds(2); ++listings) {
        char **list = nullptr;
        if (uci_list_configs(ctx, &list) != 0)
            continue;
        for (char **p = list; *p != nullptr; ++p)
            odd += (*p != shortName && *p != longName) ? 1 : 0;
        free(list);
    }
    kill(churn, SIGKILL);
    waitpid(churn, nullptr, 0);
    uci_free_context(ctx);
    sandbox::sh("rm -rf '" + dir + "'");
    EXPECT_EQ(0, odd) << "names that are no names of the directory, in " << listings;
}
