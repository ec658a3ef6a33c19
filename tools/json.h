// A tiny JSON writer for the --json output: one object per command, printed on one line.
// Commas and quoting are its business; the commands only name keys and values.
#pragma once

#include <string>
#include <vector>

class Json
{
  public:
    Json() = default;
    // Members of an object take a key; elements of an array pass nullptr.
    Json &begin_object(const char *key = nullptr);
    Json &end_object();
    Json &begin_array(const char *key = nullptr);
    Json &end_array();
    // A text; nullptr or "" writes null, so an absent value reads the same in every command.
    Json &str(const char *key, const char *value);
    Json &str(const char *key, const std::string &value) { return str(key, value.c_str()); }
    Json &num(const char *key, long value);
    Json &real(const char *key, double value);
    Json &boolean(const char *key, bool value);
    Json &null(const char *key);
    // A value another writer made whole (an object, array or scalar).
    Json &value(const char *key, const Json &v);
    // Writes the text and a newline to standard output.
    void print() const;
    const std::string &text() const { return out_; }

  private:
    void prefix(const char *key);
    void quote(const char *s);

    std::string out_;
    std::vector<bool> first_; // per open container: nothing written in it yet
};
