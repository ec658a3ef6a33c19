// The checkpoint reader on arbitrary bytes. Where byte 20 (padding in the header) is odd,
// the header's length and checksum are made right first, so the fields behind them are
// reached. A file the reader accepts must keep its promises: the views lie within the input
// and the record serialises back to the same body.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "checkpoint/record.h"
#include "fuzz_support.h"

using namespace netlib;
using fuzzsupport::require;

namespace
{

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    uint8_t *buf = static_cast<uint8_t *>(malloc(size + 1));
    memcpy(buf, data, size);
    const size_t head = sizeof(CkptHeader);
    if (size >= head && (buf[20] & 1)) {
        uint32_t body = static_cast<uint32_t>(size - head);
        uint32_t sum = ckpt_fnv1a(buf + head, body);
        memcpy(buf + 12, &body, 4);
        memcpy(buf + 16, &sum, 4);
    }
    CkptRecord rec;
    if (ckpt_parse(buf, size, rec) == nullptr) {
        const CkptFixed &f = rec.f;
        require(f.nports <= kCkptPorts, "ports");
        require(rec.pkg >= buf + head && rec.resolv + f.resolvLen == buf + size, "views");
        for (unsigned i = 0; i < f.nports; ++i)
            require(memchr(f.ports[i].name, '\0', 16) != nullptr, "name");
        size_t len = 0;
        uint8_t *out = ckpt_serialise(rec, &len);
        require(out != nullptr && len == size && memcmp(out + head, buf + head, size - head) == 0,
                "round trip");
        free(out);
    }
    free(buf);
    return 0;
}
