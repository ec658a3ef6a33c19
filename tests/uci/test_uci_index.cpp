// libuci's parser on long packages, where it finds sections by name through an index: lines
// that reopen, retype or merge sections must give the same package as the equivalent file
// written without repeats.
#include "uci.h"

#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

struct Section {
    std::string type, name;           // name empty: anonymous
    std::vector<std::string> options; // "key 'value'"
};

std::string text_of(const std::vector<Section> &secs)
{
    std::string t;
    for (const auto &s : secs) {
        t += "config " + s.type + (s.name.empty() ? "" : " '" + s.name + "'") + "\n";
        for (const auto &o : s.options)
            t += "\toption " + o + "\n";
    }
    return t;
}

// The export (with section names) of text parsed as package "t"; empty on a parse error.
// Only a parse that is not strict lets a section change its type.
std::string parsed(const std::string &text, bool strict = false)
{
    uci_context *ctx = uci_alloc_context();
    int flags = (ctx->flags | UCI_FLAG_EXPORT_NAME) & ~UCI_FLAG_STRICT;
    ctx->flags = static_cast<uci_flags>(flags | (strict ? UCI_FLAG_STRICT : 0));
    FILE *in = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    uci_package *p = nullptr;
    std::string out;
    if (uci_import(ctx, in, "t", &p, true) == UCI_OK) {
        char *buf = nullptr;
        size_t len = 0;
        FILE *f = open_memstream(&buf, &len);
        uci_export(ctx, f, p, false);
        fclose(f);
        out.assign(buf, len);
        free(buf);
    }
    fclose(in);
    uci_free_context(ctx);
    return out;
}

// n anonymous routes and n named interfaces, in turn.
std::vector<Section> filler(int n)
{
    std::vector<Section> v;
    for (int i = 0; i < n; ++i) {
        v.push_back({"route", "", {"target '10.0." + std::to_string(i) + ".0'"}});
        v.push_back({"interface", "if" + std::to_string(i), {"mtu '1500'"}});
    }
    return v;
}

// The generated name of the first anonymous route.
std::string first_route_name()
{
    std::string out = parsed("config route\n");
    size_t a = out.find('\''), b = out.find('\'', a + 1);
    return out.substr(a + 1, b - a - 1);
}

} // namespace

TEST(UciIndex, RepeatedSectionsOfLongPackagesMergeAsWritten)
{
    using Edit = std::function<void(std::vector<Section> &)>;
    struct Case {
        const char *what;
        std::string tail; // lines appended to the filler
        Edit same;        // the filler edited to what the tail must give
    } cases[] = {
        {"a later block merges into the first",
         "config interface 'a'\n\toption x '1'\nconfig zone 'z'\n"
         "config interface 'a'\n\toption y '2'\n",
         [](std::vector<Section> &v) {
             v.push_back({"interface", "a", {"x '1'", "y '2'"}});
             v.push_back({"zone", "z", {}});
         }},
        {"a filler section reopened", "config interface 'if1'\n\toption mtu '1400'\n",
         [](std::vector<Section> &v) { v[3].options = {"mtu '1400'"}; }},
        {"a type of another length replaces the object, which is found again",
         "config interface 'b'\n\toption p '1'\nconfig device 'b'\n\toption q '2'\n"
         "config device 'b'\n\toption r '3'\n",
         [](std::vector<Section> &v) {
             v.push_back({"device", "b", {"p '1'", "q '2'", "r '3'"}});
         }},
        {"a filler section retyped twice",
         "config bridge 'if0'\n\toption stp '1'\nconfig bridge 'if0'\n\toption prio '2'\n",
         [](std::vector<Section> &v) {
             v[1].type = "bridge";
             v[1].options = {"mtu '1500'", "stp '1'", "prio '2'"};
         }},
        {"a name that a generated anonymous name already has",
         "config route '" + first_route_name() + "'\n\toption metric '5'\n",
         [](std::vector<Section> &v) { v[0].options.push_back("metric '5'"); }},
    };
    for (int n : {2, 40}) { // 2: below the index, 40: through it
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(c.what) + ", filler " + std::to_string(n));
            std::vector<Section> want = filler(n);
            c.same(want);
            std::string got = parsed(text_of(filler(n)) + c.tail);
            ASSERT_FALSE(got.empty());
            EXPECT_EQ(parsed(text_of(want)), got);
            // Strict parses refuse retyping; whatever else they accept comes out the same.
            std::string strict = parsed(text_of(filler(n)) + c.tail, true);
            if (!strict.empty()) {
                EXPECT_EQ(got, strict);
            }
        }
    }
}
