// The file formats of saved trees (XNF) and diffs (XND), and the atomic
// write of a file. Layouts, byte by byte, in docs/files.md.
//
// Encoders take records already checked by the store; decoders take any
// bytes at all (files come from users, disks and networks) and either give
// back records whose every path and value the store would accept, or a
// Status whose code carries a TARVO_FILE_DETAIL_ word in its low byte
// (split it with file_detail()). Lengths are checked against their bounds
// and against the bytes left before anything is allocated for them.
#ifndef TARVO_XFILES_H
#define TARVO_XFILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "status.h"

namespace tarvo {

inline constexpr uint16_t XNF_OLD_VERSION = 1;
inline constexpr uint16_t XNF_VERSION = 2;
inline constexpr uint16_t XND_VERSION = 1;
// Files larger than this are refused before they are read.
inline constexpr uint64_t MAX_FILE_BYTES = uint64_t{1} << 32;

struct FileItem {
    std::string path;  // relative to the tree's source ("a/b"), never empty
    int32_t datatype = 0;
    std::string value;
};

struct SavedTree {
    uint16_t version = XNF_VERSION;
    std::string source;  // where it was saved from ("/a/"; "" in version 1)
    std::vector<FileItem> items;
};

struct DiffRecord {
    uint32_t kind = 0;  // TARVO_EVENT_CREATE, _SET or _DELETE
    std::string path;   // relative to the diff's base
    int32_t datatype = 0;
    bool has_old = false, has_new = false;
    std::string old_value, new_value;
};

struct Diff {
    std::string base = "/";  // directory form
    std::vector<DiffRecord> records;
};

enum class FileKind { TREE, DIFF };

// Status with the detail word in the low byte of the code.
Status file_error(int32_t code, uint32_t detail, std::string text);
// Splits such a code: the main code, and the detail into *detail.
int32_t file_detail(int32_t code, uint32_t *detail);

// CRC-32C (Castagnoli) of `bytes`, continuing from `crc` (0 to start).
uint32_t crc32c(std::string_view bytes, uint32_t crc = 0);

std::string encode_tree(const SavedTree &tree);
std::string encode_diff(const Diff &diff);
// The kind a file's magic names; BAD_FILE|MAGIC for neither.
Status file_kind(std::string_view bytes, FileKind *kind);
Status decode_tree(std::string_view bytes, SavedTree *tree);
Status decode_diff(std::string_view bytes, Diff *diff);

// Reads a whole file (FILE_READ|OPEN, |IO, BAD_FILE|TOO_LARGE).
Status read_file(const std::string &name, std::string *bytes);

// A file written beside its target and renamed over it once complete.
class AtomicFile {
public:
    AtomicFile() = default;
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;
    ~AtomicFile();  // removes the temporary file unless committed
    // Creates the temporary file in the target's directory (FILE_WRITE|OPEN).
    Status open(const std::string &target);
    // Writes, flushes to the disk, renames into place and flushes the
    // directory (FILE_WRITE|IO).
    Status commit(std::string_view bytes);

private:
    std::string target_, temp_;
    int fd_ = -1;
};

}  // namespace tarvo

#endif
