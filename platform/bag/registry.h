/*
 * The registry of bag types: every bag declaration of the schema files on
 * the bag path, by name and version.
 *
 * Registry::global() loads the folders of TARVO_BAG_PATH (colon-separated;
 * unset or empty means TARVO_BAG_DEFAULT_PATH) once, on first use, under a
 * lock; afterwards it is read-only and may be used from any thread. In each
 * folder the files ending in ".x" are read in name order; a file name met
 * again in a later folder is skipped, as a program name is on PATH. A file
 * with an error registers nothing and adds one diagnostic line; it never
 * stops the other files from loading. A bag version declared a second time
 * (in another file) is skipped with a diagnostic.
 */
#ifndef TARVO_BAG_REGISTRY_H
#define TARVO_BAG_REGISTRY_H

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "platform/bag.h"
#include "schema.h"

namespace tarvo_bag {

struct RegisteredBag {
    const BagDeclaration *declaration = nullptr;
    std::shared_ptr<const Schema> schema; /* keeps the types alive */
};

class Registry {
public:
    static const Registry &global();
    /* A registry of the folders in `path` (colon-separated), for tools and
     * tests. */
    static std::unique_ptr<Registry> load(const std::string &path);

    /* 0 with *bag set, BAG_ERR_TYPE_NOT_REGISTERED when no version of the
     * name is known, BAG_ERR_VERSION when this version is not. */
    int find(std::string_view name, int64_t major, int64_t minor,
             const RegisteredBag **bag) const;

    /* Diagnostic lines, each ending in a newline; empty when none. */
    const std::string &diagnostics() const { return diagnostics_; }
    std::vector<const RegisteredBag *> all() const;

private:
    void load_folder(const std::string &folder);
    void load_file(const std::string &file);

    using Key = std::tuple<std::string, int32_t, int32_t>;
    std::map<Key, RegisteredBag, std::less<>> bags_;
    std::vector<std::string> seen_file_names_;
    std::string diagnostics_;
};

/* An encoder, or a decoder of an XDR bag, for a bag type given directly
 * rather than found in the global registry (tools, tests, fuzzing). The
 * schema is shared with them. Results as bag_generic_encode_init and
 * bag_generic_init. */
int encode_init_registered(const RegisteredBag &bag, bag_encoder_td **encoder);
int decode_init_registered(const RegisteredBag &bag, const bag_td *data,
                           uint32_t length, bag_generic_h_td *handle);

} // namespace tarvo_bag

#endif
