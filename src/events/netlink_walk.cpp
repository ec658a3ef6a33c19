#include "events/netlink_walk.h"

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <string.h>

namespace netlib
{

namespace
{

constexpr size_t align4(size_t n)
{
    return (n + 3) & ~static_cast<size_t>(3);
}

// Advances over one aligned record of `len` bytes; the last one may lack its padding.
void skip(const uint8_t *&p, size_t &left, size_t len)
{
    size_t step = align4(len) < left ? align4(len) : left;
    p += step;
    left -= step;
}

} // namespace

bool NlMsgWalk::next(NlMsg *msg)
{
    if (left_ < sizeof(nlmsghdr))
        return false;
    nlmsghdr h;
    memcpy(&h, p_, sizeof h); // the buffer need not be aligned
    if (h.nlmsg_len < sizeof h || h.nlmsg_len > left_) {
        left_ = 0;
        return false;
    }
    msg->type = h.nlmsg_type;
    msg->flags = h.nlmsg_flags;
    msg->seq = h.nlmsg_seq;
    msg->data = p_ + sizeof h;
    msg->len = h.nlmsg_len - sizeof h;
    skip(p_, left_, h.nlmsg_len);
    return true;
}

bool NlAttrWalk::next(NlAttr *attr)
{
    if (left_ < sizeof(nlattr))
        return false;
    nlattr h;
    memcpy(&h, p_, sizeof h);
    if (h.nla_len < sizeof h || h.nla_len > left_) {
        left_ = 0;
        return false;
    }
    attr->type = h.nla_type & NLA_TYPE_MASK;
    attr->data = p_ + sizeof h;
    attr->len = h.nla_len - sizeof h;
    skip(p_, left_, h.nla_len);
    return true;
}

bool nl_attr_table(const NlMsg &msg, size_t head, NlAttr *table, size_t count)
{
    memset(table, 0, count * sizeof *table);
    if (msg.len < head)
        return false;
    size_t off = align4(head) < msg.len ? align4(head) : msg.len;
    NlAttrWalk walk(msg.data + off, msg.len - off);
    NlAttr a;
    while (walk.next(&a))
        if (a.type < count)
            table[a.type] = a;
    return true;
}

bool nl_attr_u32(const NlAttr &a, uint32_t *out)
{
    if (a.data == nullptr || a.len != sizeof *out)
        return false;
    memcpy(out, a.data, sizeof *out);
    return true;
}

bool nl_attr_str(const NlAttr &a, char *out, size_t cap)
{
    if (a.data == nullptr || cap == 0)
        return false;
    const void *nul = memchr(a.data, '\0', a.len);
    if (nul == nullptr)
        return false;
    size_t n = static_cast<size_t>(static_cast<const uint8_t *>(nul) - a.data);
    if (n >= cap)
        return false;
    memcpy(out, a.data, n + 1);
    return true;
}

bool nl_attr_addr(const NlAttr &a, int family, char out[46])
{
    size_t want = family == AF_INET ? 4 : family == AF_INET6 ? 16 : 0;
    if (a.data == nullptr || want == 0 || a.len != want)
        return false;
    uint8_t bytes[16];
    memcpy(bytes, a.data, want);
    return inet_ntop(family, bytes, out, 46) != nullptr;
}

} // namespace netlib
