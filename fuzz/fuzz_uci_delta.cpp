// Fuzzes change-file replay: the input is the save directory's change file of a package
// loaded by name. Any bytes (torn lines, foreign packages, bad tuples) must load or fail
// cleanly; what loaded must export, and that export must re-parse to itself.
#include "uci.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace
{

const char kConfig[] = "config iface 'lan'\n\toption proto 'static'\n\tlist dns '1.1.1.1'\n"
                       "config route\n\toption target '10.0.0.0'\n";

std::string dir;

bool write_file(const std::string &path, const uint8_t *data, size_t size)
{
    FILE *f = fopen(path.c_str(), "w");
    if (!f)
        return false;
    bool ok = fwrite(data, 1, size, f) == size;
    return fclose(f) == 0 && ok;
}

std::string export_pkg(uci_context *ctx, uci_package *p)
{
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    if (uci_export(ctx, f, p, false) != UCI_OK)
        abort();
    fclose(f);
    std::string out(buf, len);
    free(buf);
    return out;
}

// Section types are written unquoted, as on the device: a change line may legally give one a
// quote, backslash, '#' or ';', and such a type does not read back from the file.
bool types_read_back(uci_package *p)
{
    uci_element *e;
    uci_foreach_element(&p->sections, e)
    {
        if (strpbrk(uci_to_section(e)->type, "'\"\\#;"))
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (dir.empty()) {
        char tmpl[] = "/tmp/fuzz_uci_delta.XXXXXX";
        if (!mkdtemp(tmpl))
            abort();
        dir = tmpl;
        mkdir((dir + "/conf").c_str(), 0755);
        mkdir((dir + "/save").c_str(), 0700);
    }
    if (!write_file(dir + "/conf/fuzz", (const uint8_t *)kConfig, sizeof kConfig - 1) ||
        !write_file(dir + "/save/fuzz", data, size))
        abort();

    uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, (dir + "/conf").c_str());
    uci_set_savedir(ctx, (dir + "/save").c_str());
    uci_package *p = nullptr;
    bool loaded = uci_load(ctx, "fuzz", &p) == UCI_OK;
    std::string out = loaded ? export_pkg(ctx, p) : "";
    if (loaded && types_read_back(p)) {
        FILE *f = fmemopen((void *)out.data(), out.size(), "r");
        uci_context *again = uci_alloc_context();
        uci_package *q = nullptr;
        if (uci_import(again, f, "fuzz", &q, true) != UCI_OK || export_pkg(again, q) != out)
            abort(); // replay built something our own parser cannot read back
        fclose(f);
        uci_free_context(again);
    }
    uci_free_context(ctx);
    return 0;
}
