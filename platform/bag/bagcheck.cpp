/*
 * tarvo_bagcheck: loads the schema files on TARVO_BAG_PATH (or the folders
 * given as arguments, colon-separated like the path) and lists every bag
 * type with its versions, then the schema errors. Exit status 0 when the
 * files loaded without error, 1 otherwise.
 */
#include <cstdio>
#include <cstdlib>
#include <string>

#include "registry.h"

int main(int argc, char **argv)
{
    std::string path;
    for (int i = 1; i < argc; ++i) {
        if (!path.empty())
            path += ':';
        path += argv[i];
    }
    std::unique_ptr<tarvo_bag::Registry> loaded;
    if (!path.empty())
        loaded = tarvo_bag::Registry::load(path);
    const tarvo_bag::Registry &registry =
        loaded ? *loaded : tarvo_bag::Registry::global();
    for (const tarvo_bag::RegisteredBag *bag : registry.all())
        std::printf("%s %d.%d\t%s:%d\n", bag->declaration->name.c_str(),
                    bag->declaration->major, bag->declaration->minor,
                    bag->schema->file.c_str(), bag->declaration->line);
    std::fputs(registry.diagnostics().c_str(), stderr);
    return registry.diagnostics().empty() ? 0 : 1;
}
