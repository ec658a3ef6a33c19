#include "json.h"

#include <math.h>
#include <stdio.h>

void Json::quote(const char *s)
{
    out_ += '"';
    for (; *s != '\0'; ++s) {
        unsigned char ch = static_cast<unsigned char>(*s);
        switch (ch) {
        case '"':
            out_ += "\\\"";
            break;
        case '\\':
            out_ += "\\\\";
            break;
        case '\n':
            out_ += "\\n";
            break;
        case '\t':
            out_ += "\\t";
            break;
        case '\r':
            out_ += "\\r";
            break;
        default:
            if (ch < 0x20) {
                char buf[8];
                snprintf(buf, sizeof buf, "\\u%04x", ch);
                out_ += buf;
            } else {
                out_ += static_cast<char>(ch);
            }
        }
    }
    out_ += '"';
}

void Json::prefix(const char *key)
{
    if (!first_.empty()) {
        if (!first_.back())
            out_ += ',';
        first_.back() = false;
    }
    if (key != nullptr) {
        quote(key);
        out_ += ':';
    }
}

Json &Json::begin_object(const char *key)
{
    prefix(key);
    out_ += '{';
    first_.push_back(true);
    return *this;
}

Json &Json::end_object()
{
    out_ += '}';
    first_.pop_back();
    return *this;
}

Json &Json::begin_array(const char *key)
{
    prefix(key);
    out_ += '[';
    first_.push_back(true);
    return *this;
}

Json &Json::end_array()
{
    out_ += ']';
    first_.pop_back();
    return *this;
}

Json &Json::str(const char *key, const char *value)
{
    prefix(key);
    if (value == nullptr || value[0] == '\0')
        out_ += "null";
    else
        quote(value);
    return *this;
}

Json &Json::num(const char *key, long value)
{
    prefix(key);
    out_ += std::to_string(value);
    return *this;
}

Json &Json::real(const char *key, double value)
{
    if (!isfinite(value))
        return null(key);
    prefix(key);
    char buf[64];
    snprintf(buf, sizeof buf, "%.3f", value);
    out_ += buf;
    return *this;
}

Json &Json::boolean(const char *key, bool value)
{
    prefix(key);
    out_ += value ? "true" : "false";
    return *this;
}

Json &Json::null(const char *key)
{
    prefix(key);
    out_ += "null";
    return *this;
}

Json &Json::value(const char *key, const Json &v)
{
    prefix(key);
    out_ += v.out_;
    return *this;
}

void Json::print() const
{
    fputs(out_.c_str(), stdout);
    fputc('\n', stdout);
}
