// Fuzz target: the saved-tree (XNF) reader, both layout versions.
#include "files_fuzz.h"

using namespace files_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    run(data, size, [](const std::string &bytes) {
        tarvo::SavedTree tree;
        tarvo::Status s = tarvo::decode_tree(bytes, &tree);
        if (!s.ok())
            return check_refusal(s);
        tarvo::SavedTree again;
        check(tarvo::decode_tree(tarvo::encode_tree(tree), &again).ok());
        check(again.version == tree.version && again.source == tree.source &&
              again.items.size() == tree.items.size());
        for (size_t i = 0; i < tree.items.size(); ++i)
            check(again.items[i].path == tree.items[i].path &&
                  again.items[i].datatype == tree.items[i].datatype &&
                  again.items[i].value == tree.items[i].value);
    });
    return 0;
}
