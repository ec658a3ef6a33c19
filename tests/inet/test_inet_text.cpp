// The library's own text parsers and formatters (Inet_PtoN, Inet_NtoP) against the C
// library's inet_pton/inet_ntop over systematic inputs (random ones are the fuzz target's):
// every text the C library accepts we accept with the same bytes, every text it refuses we
// refuse, and we print exactly what it prints. Buffers of exact size on the heap let the
// sanitizer build catch any read or write past an end.
#include <arpa/inet.h>
#include <string.h>
#include <sys/socket.h>

#include <random>
#include <string>
#include <vector>

#include "libnetwork.h"
#include "sandbox.h"

namespace
{

constexpr unsigned kSeed = 20240611u;

// std::vector allocates exactly what it is built with: no slack after the last byte.
using Heap = std::vector<char>;

Heap heap_text(const std::string &s)
{
    return Heap(s.c_str(), s.c_str() + s.size() + 1);
}

std::string hex(const void *p, size_t n)
{
    std::string s;
    char b[4];
    for (size_t i = 0; i < n; ++i) {
        snprintf(b, sizeof b, "%02x", static_cast<const unsigned char *>(p)[i]);
        s += b;
    }
    return s;
}

::testing::AssertionResult same_parse(int af, const std::string &text)
{
    size_t n = af == AF_INET ? 4 : 16;
    Heap src = heap_text(text), ours(n, '\xa5'), theirs(n, '\xa5');
    int r1 = Inet_PtoN(af, src.data(), ours.data());
    int r2 = inet_pton(af, src.data(), theirs.data());
    if (r1 == r2 && ours == theirs)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "af " << af << " \"" << text << "\": ours " << r1 << " " << hex(ours.data(), n)
           << ", C library " << r2 << " " << hex(theirs.data(), n);
}

// Formats into buffers of every size from lo to hi (0: the text's own size and one short):
// null exactly when the C library gives null, and the same bytes left in the buffer.
::testing::AssertionResult same_format(int af, const unsigned char *addr, size_t lo = 0,
                                       size_t hi = 0)
{
    if (hi == 0) {
        char ref[64];
        hi = strlen(inet_ntop(af, addr, ref, sizeof ref)) + 1;
        lo = hi - 1;
    }
    for (size_t size = lo; size <= hi; ++size) {
        Heap ours(size ? size : 1, 'X'), theirs(size ? size : 1, 'X');
        const char *r1 = Inet_NtoP(af, addr, ours.data(), static_cast<unsigned>(size));
        const char *r2 = inet_ntop(af, addr, theirs.data(), static_cast<socklen_t>(size));
        if ((r1 == nullptr) != (r2 == nullptr) || (r1 && r1 != ours.data()) || ours != theirs)
            return ::testing::AssertionFailure()
                   << "af " << af << " " << hex(addr, af == AF_INET ? 4 : 16) << " size " << size
                   << ": ours \"" << std::string(ours.begin(), ours.end()) << "\", C library \""
                   << std::string(theirs.begin(), theirs.end()) << "\"";
    }
    return ::testing::AssertionSuccess();
}

std::string dotted(const unsigned char *b)
{
    char t[20];
    snprintf(t, sizeof t, "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
    return t;
}

// Every text of up to maxLen characters over a small alphabet.
std::vector<std::string> all_texts(const std::string &alphabet, size_t maxLen)
{
    std::vector<std::string> out{""};
    for (size_t from = 0, len = 1; len <= maxLen; ++len) {
        size_t to = out.size();
        for (size_t i = from; i < to; ++i)
            for (char c : alphabet)
                out.push_back(out[i] + c);
        from = to;
    }
    return out;
}

} // namespace

TEST(InetText, Ipv4ParseMatchesTheCLibrary)
{
    const char *hard[] = {"0.0.0.0",   "255.255.255.255", "01.2.3.4", "1.2.3.04",  "00.0.0.0",
                          "256.1.1.1", "1.2.3.256",       "1.2.3",    "1.2.3.4.5", "1.2.3.4.",
                          ".1.2.3.4",  "1..2.3",          "1.2.3.4 ", " 1.2.3.4",  "1.2.3.4a",
                          "0x1.2.3.4", "1234.1.1.1",      "1.2.3.-4", "+1.2.3.4",  "1.2.3.4\n"};
    for (const char *t : hard)
        EXPECT_TRUE(same_parse(AF_INET, t));
    for (const auto &t : all_texts("0.19a", 8))
        ASSERT_TRUE(same_parse(AF_INET, t));
    unsigned char b[4] = {0};
    for (unsigned v = 0; v < 256; ++v) // every part value in every position
        for (int pos = 0; pos < 4; ++pos) {
            b[pos] = static_cast<unsigned char>(v);
            ASSERT_TRUE(same_parse(AF_INET, dotted(b)));
            b[pos] = 0;
        }
}

TEST(InetText, Ipv6ParseMatchesTheCLibrary)
{
    const char *hard[] = {"1:2:3:4:5:6:7:8::",
                          "::1:2:3:4:5:6:7:8",
                          "1::2::3",
                          ":::",
                          ":1::",
                          "1::2:",
                          "00000::1",
                          "12345::1",
                          "::ffff:1.2.3",
                          "::ffff:01.2.3.4",
                          "::1.2.3.4::",
                          "1.2.3.4",
                          "::ffff:1.2.3.4:5",
                          "1.2.3.4::",
                          "::a.b.c.d",
                          "::1a.2.3.4",
                          "fe80::1%eth0",
                          "2001:db8::/64",
                          " ::1",
                          "::1 ",
                          "g::1",
                          "[::1]",
                          "FFFF:ffff:FfFf::1"};
    for (const char *t : hard)
        EXPECT_TRUE(same_parse(AF_INET6, t));
    for (const auto &t : all_texts(":.01fG", 7))
        ASSERT_TRUE(same_parse(AF_INET6, t));
    // n groups of 1 to 5 digits with "::" in every position, with and without a dotted tail.
    for (int n = 0; n <= 9; ++n)
        for (int gapAt = -1; gapAt <= n; ++gapAt)
            for (int digits = 1; digits <= 5; ++digits)
                for (int tail = 0; tail < 2; ++tail) {
                    std::string s;
                    for (int i = 0; i <= n; ++i) {
                        s += i == gapAt ? "::" : i > 0 ? ":" : "";
                        if (i < n)
                            s += std::string(static_cast<size_t>(digits - 1), '0') + "a";
                    }
                    ASSERT_TRUE(same_parse(AF_INET6, tail ? s + "9.8.7.6" : s));
                }
}

TEST(InetText, FormatMatchesTheCLibrary)
{
    unsigned char b[16];
    for (unsigned v = 0; v < 256; ++v) // every part value in every position
        for (int pos = 0; pos < 4; ++pos) {
            memset(b, 0, 4);
            b[pos] = static_cast<unsigned char>(v);
            ASSERT_TRUE(same_format(AF_INET, b));
        }
    std::mt19937 rng(kSeed + 4);
    // Every pattern of zero groups, with small, largest and random non-zero groups, and the
    // same with the shapes that print a dotted tail.
    for (unsigned pattern = 0; pattern < 256; ++pattern)
        for (int k = 0; k < 200; ++k) {
            for (int i = 0; i < 8; ++i) {
                unsigned v = 0;
                if (pattern & (1u << i))
                    v = k % 3 == 0 ? 1 + rng() % 15 : k % 3 == 1 ? 0xffff : 1 + rng() % 0xffff;
                b[2 * i] = static_cast<unsigned char>(v >> 8);
                b[2 * i + 1] = static_cast<unsigned char>(v);
            }
            ASSERT_TRUE(same_format(AF_INET6, b));
            memset(b, 0, 10);
            b[10] = b[11] = (k & 1) ? 0xff : 0;
            ASSERT_TRUE(same_format(AF_INET6, b));
        }
    const unsigned char v4[4] = {255, 255, 255, 255};
    const unsigned char v6[16] = {0xff, 0xff, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_TRUE(same_format(AF_INET, v4, 0, 47));
    EXPECT_TRUE(same_format(AF_INET6, v6, 0, 47));
}
