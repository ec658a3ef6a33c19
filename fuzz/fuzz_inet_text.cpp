// The own text parsers and formatters against the C library's inet_pton/inet_ntop: any
// difference in result, bytes or text aborts. The input is read as a text for the parsers
// and, when long enough, as an address for the formatters.
#include <arpa/inet.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include "inet/text.h"
#include "libnetwork.h"

namespace
{

void mismatch(const char *what, const uint8_t *data, size_t size)
{
    fprintf(stderr, "mismatch in %s for input of %zu bytes:", what, size);
    for (size_t i = 0; i < size; ++i)
        fprintf(stderr, " %02x", data[i]);
    fprintf(stderr, "\n");
    abort();
}

void check_parse(int af, const char *text, const uint8_t *data, size_t size)
{
    unsigned char ours[16], ref[16];
    memset(ours, 0xa5, sizeof ours);
    memset(ref, 0xa5, sizeof ref);
    int r1 = Inet_PtoN(af, text, ours);
    int r2 = inet_pton(af, text, ref);
    if (r1 != r2 || memcmp(ours, ref, sizeof ours) != 0)
        mismatch(af == AF_INET ? "IPv4 parse" : "IPv6 parse", data, size);
    // The socket helpers' form agrees with the plain one.
    unsigned char w[16];
    int r3 = inet_pton_with_af(af, text, w, sizeof w);
    if ((r3 == 0) != (r1 == 1) || (r3 == 0 && memcmp(w, ours, af == AF_INET ? 4 : 16) != 0))
        mismatch("inet_pton_with_af", data, size);
}

void check_format(int af, const unsigned char *addr, unsigned size, const uint8_t *data,
                  size_t dsize)
{
    char ref[64];
    if (inet_ntop(af, addr, ref, sizeof ref) == nullptr)
        mismatch("C library format", data, dsize);
    // Exactly sized heap buffers: a write past the end is caught by the sanitizer.
    char *buf = static_cast<char *>(malloc(size ? size : 1));
    char *r = Inet_NtoP(af, addr, buf, size);
    size_t need = strlen(ref) + 1;
    if ((r != nullptr) != (size >= need) || (r != nullptr && strcmp(r, ref) != 0))
        mismatch(af == AF_INET ? "IPv4 format" : "IPv6 format", data, dsize);
    free(buf);
    // What we print, we parse back to the same address.
    unsigned char back[16];
    if (Inet_PtoN(af, ref, back) != 1 || memcmp(back, addr, af == AF_INET ? 4 : 16) != 0)
        mismatch("round trip", data, dsize);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("NETLIB_LOG", "none", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The text ends at the first NUL, as the C library reads it.
    char *text = static_cast<char *>(malloc(size + 1));
    memcpy(text, data, size);
    text[size] = '\0';
    check_parse(AF_INET, text, data, size);
    check_parse(AF_INET6, text, data, size);
    free(text);

    if (size >= 17) {
        unsigned room = data[16] % 48;
        check_format(AF_INET6, data, room, data, size);
        check_format(AF_INET, data, room % 20, data, size);
        // The socket helpers' IPv4 text never goes past size - 1 bytes.
        int isz = static_cast<int>(room % 20);
        char *buf = static_cast<char *>(malloc(isz ? static_cast<size_t>(isz) : 1));
        inet_ntop_with_af(AF_INET, data, buf, isz);
        free(buf);
    }
    return 0;
}
