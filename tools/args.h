// Arguments of one subcommand: options ("--name", "--name VALUE", "--name=VALUE") anywhere
// before a lone "--", the rest positional. Commands take their options first, then the
// positionals in order, then call end(). The first mistake is reported once, naming the
// argument; later reads come back empty.
#pragma once

#include <string>
#include <vector>

#include "cli.h"

class Args
{
  public:
    Args(const Ctx &c, int argc, char **argv);

    // A boolean option; true when given.
    bool flag(const char *name);
    // An option with a value; false (reported) when the value is missing. *value is left as
    // it was when the option is not given.
    bool option(const char *name, const char **value);
    // The next positional argument; reports "missing ARG" when there is none.
    const char *need(const char *argName);
    // The next positional argument, or nullptr.
    const char *take();
    // True when every argument was used and nothing went wrong; else reports what is left.
    bool end();
    bool ok() const { return ok_; }
    // Positional arguments not read yet.
    int remaining() const;

  private:
    struct Item {
        const char *text;
        bool option; // starts with "--" and stands before a lone "--"
        bool used;
    };
    void error(const std::string &text);
    int find_option(const char *name, const char **inlineValue);

    const Ctx &c_;
    std::vector<Item> items_;
    bool ok_ = true;
};
