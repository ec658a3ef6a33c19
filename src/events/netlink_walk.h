// Reading rtnetlink datagrams strictly within the bytes received: messages, then the
// attributes of one message. Nothing here trusts a length field it has not checked against
// what is left, so a truncated or hostile datagram ends the walk instead of overrunning.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace netlib
{

// One netlink message: its header fields and the payload after the header.
struct NlMsg {
    uint16_t type;
    uint16_t flags;
    uint32_t seq;
    const uint8_t *data;
    size_t len;
};

// One attribute: its type (nested and byte-order bits cleared) and payload.
struct NlAttr {
    uint16_t type;
    const uint8_t *data;
    size_t len;
};

// Walks the messages of a datagram: true with the next one, false at the end or at the
// first message whose length does not fit.
class NlMsgWalk
{
  public:
    NlMsgWalk(const void *buf, size_t len) : p_(static_cast<const uint8_t *>(buf)), left_(len) {}
    bool next(NlMsg *msg);

  private:
    const uint8_t *p_;
    size_t left_;
};

// Walks the attributes in [buf, buf + len) the same way.
class NlAttrWalk
{
  public:
    NlAttrWalk(const void *buf, size_t len) : p_(static_cast<const uint8_t *>(buf)), left_(len) {}
    bool next(NlAttr *attr);

  private:
    const uint8_t *p_;
    size_t left_;
};

// The attributes after a fixed header of `head` bytes, by type: table[t] for t < count, the
// last one of a type winning; types out of range are skipped. False when the message is
// shorter than its header. Unset entries have a null data pointer.
bool nl_attr_table(const NlMsg &msg, size_t head, NlAttr *table, size_t count);

// Typed reads: false unless the payload has the size of the type.
bool nl_attr_u32(const NlAttr &a, uint32_t *out);
// A name of at most cap - 1 characters, terminated within the payload.
bool nl_attr_str(const NlAttr &a, char *out, size_t cap);
// An address of the family (4 or 16 bytes) as text in out[46].
bool nl_attr_addr(const NlAttr &a, int family, char out[46]);

} // namespace netlib
