// A package of the configuration store held for one command: discarded on every path unless
// committed.
#pragma once

#include "libnetwork.h"

class Package
{
  public:
    explicit Package(const char *name) : p_(NET_CreatePackage(name)) {}
    ~Package()
    {
        if (p_ != nullptr)
            NET_FreePackage(p_);
    }
    Package(const Package &) = delete;
    Package &operator=(const Package &) = delete;

    struct uci_package *get() const { return p_; }
    // Saves and releases; the package is gone afterwards whatever the result.
    int commit()
    {
        struct uci_package *p = p_;
        p_ = nullptr;
        return NET_UciCommit(p);
    }

  private:
    struct uci_package *p_;
};
