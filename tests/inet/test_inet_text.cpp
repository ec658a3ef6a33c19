// The library's own text parsers and formatters (Inet_PtoN, Inet_NtoP) against the C
// library's inet_pton/inet_ntop over many generated inputs: every text the C library
// accepts we accept with the same bytes, every text it refuses we refuse, and we print
// exactly what it prints. Heap buffers of exact size let the sanitizer build catch any
// read or write past an end.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

namespace
{

constexpr unsigned kSeed = 20240611u;

// A NUL-terminated copy on the heap with no slack after the terminator.
struct ExactText {
    explicit ExactText(const std::string &s) : p(static_cast<char *>(malloc(s.size() + 1)))
    {
        memcpy(p, s.c_str(), s.size() + 1);
    }
    ~ExactText() { free(p); }
    ExactText(const ExactText &) = delete;
    ExactText &operator=(const ExactText &) = delete;
    char *p;
};

struct ExactBuf {
    explicit ExactBuf(size_t n, unsigned char fill = 0xA5)
        : p(static_cast<unsigned char *>(malloc(n ? n : 1))), n(n)
    {
        memset(p, fill, n ? n : 1);
    }
    ~ExactBuf() { free(p); }
    ExactBuf(const ExactBuf &) = delete;
    ExactBuf &operator=(const ExactBuf &) = delete;
    std::string bytes() const { return std::string(reinterpret_cast<char *>(p), n); }
    unsigned char *p;
    size_t n;
};

std::string hex(const unsigned char *b, size_t n)
{
    static const char d[] = "0123456789abcdef";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s += d[b[i] >> 4];
        s += d[b[i] & 15];
    }
    return s;
}

// Parses text with both parsers; reports any difference in result or bytes.
::testing::AssertionResult same_parse(int af, const std::string &text)
{
    size_t n = af == AF_INET ? 4 : 16;
    ExactText src(text);
    ExactBuf ours(n), theirs(n);
    int r1 = Inet_PtoN(af, src.p, ours.p);
    int r2 = inet_pton(af, src.p, theirs.p);
    if (r1 != r2 || ours.bytes() != theirs.bytes())
        return ::testing::AssertionFailure()
               << "af " << af << " \"" << text << "\": ours " << r1 << " " << hex(ours.p, n)
               << ", C library " << r2 << " " << hex(theirs.p, n);
    return ::testing::AssertionSuccess();
}

// Formats with both formatters into a buffer of exactly the size each needs, and one
// byte short.
::testing::AssertionResult same_format(int af, const unsigned char *addr)
{
    char ref[64];
    if (inet_ntop(af, addr, ref, sizeof ref) == nullptr)
        return ::testing::AssertionFailure() << "C library refused " << hex(addr, 16);
    size_t need = strlen(ref) + 1;
    ExactBuf fit(need), shortb(need - 1);
    char *r = Inet_NtoP(af, addr, reinterpret_cast<char *>(fit.p), need);
    if (r != reinterpret_cast<char *>(fit.p) || strcmp(r, ref) != 0)
        return ::testing::AssertionFailure()
               << "af " << af << " " << hex(addr, 16) << ": ours \"" << (r ? r : "(null)")
               << "\", C library \"" << ref << "\"";
    std::string before = shortb.bytes();
    if (Inet_NtoP(af, addr, reinterpret_cast<char *>(shortb.p), static_cast<unsigned>(need - 1)) !=
            nullptr ||
        shortb.bytes() != before)
        return ::testing::AssertionFailure() << "one byte short accepted for " << ref;
    return ::testing::AssertionSuccess();
}

// ---- Generators ---------------------------------------------------------------------------

std::string group_text(unsigned g, bool pad, bool upper)
{
    char b[8];
    snprintf(b, sizeof b, pad ? (upper ? "%04X" : "%04x") : (upper ? "%X" : "%x"), g);
    return b;
}

std::string dotted(const unsigned char *b)
{
    char t[20];
    snprintf(t, sizeof t, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
    return t;
}

// Every legal spelling of one address that these choices reach: "::" over any run of zero
// groups (or none), padded or bare groups, upper or lower case, dotted tail or not.
std::vector<std::string> spellings(const unsigned char *a, std::mt19937 &rng)
{
    unsigned g[8];
    for (int i = 0; i < 8; ++i)
        g[i] = (a[2 * i] << 8) | a[2 * i + 1];
    std::vector<std::pair<int, int>> runs{{-1, 0}};
    for (int s = 0; s < 8; ++s)
        for (int e = s; e < 8 && g[e] == 0; ++e)
            runs.push_back({s, e - s + 1});
    std::vector<std::string> out;
    for (auto run : runs) {
        for (int tail = 0; tail < 2; ++tail) {
            int groups = tail ? 6 : 8;
            if (run.first >= groups)
                continue;
            if (run.first >= 0 && run.first + run.second > groups)
                continue;
            std::string s;
            bool pad = rng() & 1;
            bool upper = rng() & 1;
            bool mixed = (rng() & 3) == 0;
            for (int i = 0; i < groups; ++i) {
                if (run.first >= 0 && i == run.first) {
                    s += "::";
                    i += run.second - 1;
                    continue;
                }
                if (!s.empty() && s.back() != ':')
                    s += ':';
                std::string t = group_text(g[i], pad, upper);
                if (mixed)
                    for (auto &c : t)
                        if (rng() & 1)
                            c = static_cast<char>(toupper(c));
                s += t;
            }
            if (tail) {
                if (!s.empty() && s.back() != ':')
                    s += ':';
                s += dotted(a + 12);
            }
            out.push_back(s);
        }
    }
    return out;
}

void random_addr6(unsigned char *a, std::mt19937 &rng)
{
    // Zero groups are common so that compression has something to do.
    for (int i = 0; i < 8; ++i) {
        unsigned kind = rng() % 4;
        unsigned v = kind < 2 ? 0 : kind == 2 ? rng() % 16 : rng() & 0xffff;
        a[2 * i] = static_cast<unsigned char>(v >> 8);
        a[2 * i + 1] = static_cast<unsigned char>(v);
    }
}

// ::a.b.c.d (IPv4-compatible) or ::ffff:a.b.c.d (IPv4-mapped), keeping the last 4 bytes.
void make_v4_shape(unsigned char *a, bool mapped)
{
    memset(a, 0, 10);
    a[10] = a[11] = mapped ? 0xff : 0;
}

const char kAlphabet[] = ":.0123456789abcdefABCDEFgx %/";

std::string mutate(std::string s, std::mt19937 &rng)
{
    unsigned edits = 1 + rng() % 3;
    for (unsigned k = 0; k < edits; ++k) {
        size_t pos = s.empty() ? 0 : rng() % (s.size() + 1);
        char c = kAlphabet[rng() % (sizeof kAlphabet - 1)];
        switch (rng() % 4) {
        case 0:
            if (!s.empty() && pos < s.size())
                s.erase(pos, 1);
            break;
        case 1:
            s.insert(pos, 1, c);
            break;
        case 2:
            if (pos < s.size())
                s[pos] = c;
            break;
        default:
            if (pos < s.size())
                s.insert(pos, 1, s[pos]);
            break;
        }
    }
    return s;
}

// All texts of up to maxLen characters over a small alphabet.
void all_texts(const std::string &alphabet, size_t maxLen, std::vector<std::string> &out)
{
    std::vector<std::string> level{""};
    out.push_back("");
    for (size_t len = 1; len <= maxLen; ++len) {
        std::vector<std::string> next;
        for (const auto &s : level)
            for (char c : alphabet)
                next.push_back(s + c);
        out.insert(out.end(), next.begin(), next.end());
        level.swap(next);
    }
}

} // namespace

// ---- IPv4 parsing ---------------------------------------------------------------------------

TEST(InetText, Ipv4TableOfForms)
{
    // The C library's answer is the expected one; the texts are the hard cases.
    const char *texts[] = {"0.0.0.0",   "255.255.255.255", "1.2.3.4",   "01.2.3.4",
                           "1.2.3.04",  "00.0.0.0",        "256.1.1.1", "1.2.3.256",
                           "1.2.3",     "1.2.3.4.5",       "1.2.3.4.",  ".1.2.3.4",
                           "1..2.3",    "1.2.3.4 ",        " 1.2.3.4",  "1.2.3.4a",
                           "0x1.2.3.4", "1234.1.1.1",      "",          "1.2.3.-4",
                           "+1.2.3.4",  "999.999.999.999", "1.2.3.4\n", "192.168.001.010"};
    for (const char *t : texts)
        EXPECT_TRUE(same_parse(AF_INET, t));
}

TEST(InetText, Ipv4ShortTextsExhaustive)
{
    std::vector<std::string> texts;
    all_texts("0.19a", 8, texts);
    for (const auto &t : texts)
        ASSERT_TRUE(same_parse(AF_INET, t));
}

TEST(InetText, Ipv4RandomAndMutated)
{
    std::mt19937 rng(kSeed);
    for (int i = 0; i < 200000; ++i) {
        unsigned char b[4];
        for (auto &x : b)
            x = static_cast<unsigned char>(rng());
        std::string valid = dotted(b);
        ASSERT_TRUE(same_parse(AF_INET, valid));
        ASSERT_TRUE(same_parse(AF_INET, mutate(valid, rng)));
    }
}

// ---- IPv6 parsing ---------------------------------------------------------------------------

TEST(InetText, Ipv6TableOfForms)
{
    // The C library's answer is the expected one; the texts are the hard cases.
    const char *texts[] = {"::",
                           "::1",
                           "1::",
                           "1:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7::",
                           "::2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7:8::",
                           "::1:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7",
                           "1:2:3:4:5:6:7:8:9",
                           "1::2::3",
                           ":::",
                           ":1::",
                           "1:",
                           ":",
                           "",
                           "1::2:",
                           "FFFF:ffff:FfFf:0:0:0:0:1",
                           "0000:0000:0000:0000:0000:0000:0000:0001",
                           "00000::1",
                           "12345::1",
                           "::ffff:1.2.3.4",
                           "::1.2.3.4",
                           "1:2:3:4:5:6:1.2.3.4",
                           "1:2:3:4:5:6:7:1.2.3.4",
                           "1:2:3:4:5:1.2.3.4",
                           "::ffff:1.2.3",
                           "::ffff:01.2.3.4",
                           "::ffff:1.2.3.4:5",
                           "::1.2.3.4::",
                           "1.2.3.4",
                           "1.2.3.4::",
                           "::a.b.c.d",
                           "::1a.2.3.4",
                           "fe80::1%eth0",
                           "2001:db8::/64",
                           " ::1",
                           "::1 ",
                           "g::1",
                           "[::1]"};
    for (const char *t : texts)
        EXPECT_TRUE(same_parse(AF_INET6, t));
}

TEST(InetText, Ipv6EverySpellingOfGeneratedAddresses)
{
    std::mt19937 rng(kSeed);
    size_t checked = 0;
    for (int i = 0; i < 20000; ++i) {
        unsigned char a[16];
        random_addr6(a, rng);
        if (i % 10 == 0)
            make_v4_shape(a, i % 20 == 0);
        for (const auto &s : spellings(a, rng)) {
            ExactText src(s);
            ExactBuf out(16);
            ASSERT_EQ(1, Inet_PtoN(AF_INET6, src.p, out.p)) << s;
            ASSERT_EQ(hex(a, 16), hex(out.p, 16)) << s;
            ASSERT_TRUE(same_parse(AF_INET6, s));
            ++checked;
        }
    }
    EXPECT_GT(checked, 100000u);
}

TEST(InetText, Ipv6MutatedSpellings)
{
    std::mt19937 rng(kSeed + 1);
    for (int i = 0; i < 30000; ++i) {
        unsigned char a[16];
        random_addr6(a, rng);
        for (const auto &s : spellings(a, rng))
            ASSERT_TRUE(same_parse(AF_INET6, mutate(s, rng)));
    }
}

TEST(InetText, Ipv6ShortTextsExhaustive)
{
    std::vector<std::string> texts;
    all_texts(":.01fG", 7, texts);
    for (const auto &t : texts)
        ASSERT_TRUE(same_parse(AF_INET6, t));
}

TEST(InetText, Ipv6GroupCountsAndGapPositions)
{
    // n groups of 1 to 5 digits with "::" in every position, with and without a tail.
    for (int n = 0; n <= 9; ++n) {
        for (int gapAt = -1; gapAt <= n; ++gapAt) {
            for (int digits = 1; digits <= 5; ++digits) {
                for (int tail = 0; tail < 2; ++tail) {
                    std::string s;
                    for (int i = 0; i <= n; ++i) {
                        if (i == gapAt)
                            s += "::";
                        else if (i > 0)
                            s += ':';
                        if (i < n)
                            s += std::string(static_cast<size_t>(digits - 1), '0') + "a";
                    }
                    if (tail)
                        s += "9.8.7.6";
                    ASSERT_TRUE(same_parse(AF_INET6, s));
                }
            }
        }
    }
}

// ---- Formatting -----------------------------------------------------------------------------

TEST(InetText, Ipv4FormatMatches)
{
    unsigned char b[4];
    for (unsigned v = 0; v < 256; ++v) { // every part value in every position
        for (int pos = 0; pos < 4; ++pos) {
            memset(b, 0, 4);
            b[pos] = static_cast<unsigned char>(v);
            ASSERT_TRUE(same_format(AF_INET, b));
        }
    }
}

TEST(InetText, Ipv6FormatEveryZeroPattern)
{
    std::mt19937 rng(kSeed + 4);
    // Every pattern of zero groups, with random, small and large non-zero groups.
    for (unsigned pattern = 0; pattern < 256; ++pattern) {
        for (int k = 0; k < 200; ++k) {
            unsigned char a[16];
            for (int i = 0; i < 8; ++i) {
                unsigned v = 0;
                if (pattern & (1u << i))
                    v = k % 3 == 0 ? 1 + rng() % 15 : k % 3 == 1 ? 0xffff : 1 + rng() % 0xffff;
                a[2 * i] = static_cast<unsigned char>(v >> 8);
                a[2 * i + 1] = static_cast<unsigned char>(v);
            }
            ASSERT_TRUE(same_format(AF_INET6, a));
            // The same with the shapes that end in a dotted tail.
            make_v4_shape(a, k & 1);
            ASSERT_TRUE(same_format(AF_INET6, a));
        }
    }
}

TEST(InetText, FormatterSizesAroundTheText)
{
    // Every size from 0 to one past the text: null exactly when the C library gives null,
    // and a refused call leaves the buffer as it was.
    const unsigned char v4[4] = {255, 255, 255, 255};
    const unsigned char v6[16] = {0xff, 0xff, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    struct Case {
        int af;
        const unsigned char *addr;
    } cases[] = {{AF_INET, v4}, {AF_INET6, v6}};
    for (const auto &c : cases) {
        for (unsigned size = 0; size < 48; ++size) {
            ExactBuf ours(size), theirs(size);
            const char *r1 = Inet_NtoP(c.af, c.addr, reinterpret_cast<char *>(ours.p), size);
            const char *r2 = inet_ntop(c.af, c.addr, reinterpret_cast<char *>(theirs.p), size);
            EXPECT_EQ(r1 == nullptr, r2 == nullptr) << "af " << c.af << " size " << size;
            EXPECT_EQ(theirs.bytes(), ours.bytes()) << "af " << c.af << " size " << size;
        }
    }
}
