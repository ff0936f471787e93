// Fuzz target: the diff (XND) reader.
#include "files_fuzz.h"

using namespace files_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    run(data, size, [](const std::string &bytes) {
        tarvo::Diff diff;
        tarvo::Status s = tarvo::decode_diff(bytes, &diff);
        if (!s.ok())
            return check_refusal(s);
        tarvo::Diff again;
        check(tarvo::decode_diff(tarvo::encode_diff(diff), &again).ok());
        check(again.base == diff.base && again.records.size() == diff.records.size());
        for (size_t i = 0; i < diff.records.size(); ++i) {
            const tarvo::DiffRecord &a = diff.records[i], &b = again.records[i];
            check(a.kind == b.kind && a.path == b.path && a.datatype == b.datatype &&
                  a.has_old == b.has_old && a.has_new == b.has_new &&
                  a.old_value == b.old_value && a.new_value == b.new_value);
        }
    });
    return 0;
}
