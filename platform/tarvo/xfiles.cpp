// Saved-tree and diff files: header, records, checksums, atomic writes.
#include "xfiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <random>

#include "paths.h"
#include "values.h"

namespace tarvo {
namespace {

constexpr size_t HEADER_SIZE = 32;
constexpr std::string_view XNF_MAGIC = "TARVOXNF";
constexpr std::string_view XND_MAGIC = "TARVOXND";

// ---- Checksum ----

constexpr std::array<uint32_t, 256> crc_table()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? (c >> 1) ^ 0x82F63B78u : c >> 1;
        table[i] = c;
    }
    return table;
}
constexpr std::array<uint32_t, 256> CRC_TABLE = crc_table();

// ---- Writing ----

class Writer {
public:
    void u8(uint8_t v) { out_.push_back(static_cast<char>(v)); }
    void fixed(uint64_t v, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            u8(static_cast<uint8_t>(v >> (8 * i)));
    }
    void varint(uint64_t v)
    {
        while (v >= 0x80) {
            u8(static_cast<uint8_t>(v | 0x80));
            v >>= 7;
        }
        u8(static_cast<uint8_t>(v));
    }
    void bytes(std::string_view b) { out_.append(b); }
    void text(std::string_view b)
    {
        varint(b.size());
        bytes(b);
    }
    std::string &out() { return out_; }

private:
    std::string out_;
};

// Integer values are kept in the file little-endian whatever the machine.
std::string file_order(int32_t datatype, std::string value)
{
    if constexpr (std::endian::native == std::endian::big) {
        if (integer_width(datatype) == value.size())
            std::reverse(value.begin(), value.end());
    }
    (void)datatype;
    return value;
}

std::string with_header(std::string_view magic, uint16_t version, uint64_t count,
                        std::string body)
{
    Writer h;
    h.bytes(magic);
    h.fixed(version, 2);
    h.fixed(HEADER_SIZE, 2);
    h.fixed(count, 4);
    h.fixed(body.size(), 8);
    h.fixed(crc32c(body), 4);
    h.fixed(crc32c(h.out()), 4);
    return h.out() + body;
}

// ---- Reading ----

Status bad(uint32_t detail, std::string text)
{
    return file_error(TARVO_ERR_BAD_FILE, detail, std::move(text));
}

class Reader {
public:
    explicit Reader(std::string_view in) : in_(in) {}
    size_t left() const { return in_.size() - at_; }
    size_t offset() const { return at_; }

    Status fixed(int bytes, uint64_t *v)
    {
        if (left() < static_cast<size_t>(bytes))
            return truncated();
        *v = 0;
        for (int i = 0; i < bytes; ++i)
            *v |= uint64_t{static_cast<uint8_t>(in_[at_++])} << (8 * i);
        return ok_status();
    }
    Status varint(uint64_t *v)
    {
        *v = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            if (!left())
                return truncated();
            const uint8_t b = static_cast<uint8_t>(in_[at_++]);
            if (shift == 63 && b > 1)
                break;
            *v |= uint64_t{b & 0x7fu} << shift;
            if (!(b & 0x80))
                return ok_status();
        }
        return bad(TARVO_FILE_DETAIL_RECORD, "overlong number at byte " + std::to_string(at_));
    }
    // A length, checked against `bound` and the bytes left before anything
    // is made of it.
    Status length(uint64_t bound, const char *what, uint64_t *n)
    {
        Status s = varint(n);
        if (s.ok() && *n > bound)
            s = bad(TARVO_FILE_DETAIL_LENGTH, std::string(what) + " of " + std::to_string(*n) +
                                                  " bytes (at most " + std::to_string(bound) + ")");
        if (s.ok() && *n > left())
            s = truncated();
        return s;
    }
    Status bytes(uint64_t n, std::string *out)
    {
        if (n > left())
            return truncated();
        out->assign(in_.substr(at_, n));
        at_ += n;
        return ok_status();
    }
    Status text(uint64_t bound, const char *what, std::string *out)
    {
        uint64_t n = 0;
        Status s = length(bound, what, &n);
        return s.ok() ? bytes(n, out) : s;
    }

private:
    Status truncated() const
    {
        return bad(TARVO_FILE_DETAIL_TRUNCATED, "a record runs past the end of the body");
    }
    std::string_view in_;
    size_t at_ = 0;
};

struct Header {
    uint16_t version = 0;
    uint64_t count = 0;
    std::string_view body;
};

Status read_header(std::string_view bytes, std::string_view magic, Header *h)
{
    if (bytes.size() < magic.size() || bytes.substr(0, magic.size()) != magic)
        return bad(TARVO_FILE_DETAIL_MAGIC, std::string("no ") + std::string(magic.substr(5)) +
                                                " magic at the start");
    if (bytes.size() < HEADER_SIZE)
        return bad(TARVO_FILE_DETAIL_TRUNCATED, "the header is cut short");
    Reader r(bytes.substr(8, HEADER_SIZE - 8));
    uint64_t version, size, count, body_length, body_crc, header_crc;
    r.fixed(2, &version);
    r.fixed(2, &size);
    r.fixed(4, &count);
    r.fixed(8, &body_length);
    r.fixed(4, &body_crc);
    r.fixed(4, &header_crc);
    if (header_crc != crc32c(bytes.substr(0, HEADER_SIZE - 4)))
        return bad(TARVO_FILE_DETAIL_CHECKSUM, "the header's checksum does not match");
    if (size != HEADER_SIZE)
        return bad(TARVO_FILE_DETAIL_VERSION, "header of " + std::to_string(size) + " bytes");
    const uint64_t present = bytes.size() - HEADER_SIZE;
    if (body_length > present)
        return bad(TARVO_FILE_DETAIL_TRUNCATED, "body of " + std::to_string(body_length) +
                                                    " bytes, " + std::to_string(present) +
                                                    " present");
    if (body_length < present)
        return bad(TARVO_FILE_DETAIL_LENGTH, std::to_string(present - body_length) +
                                                 " bytes after the body");
    h->body = bytes.substr(HEADER_SIZE);
    if (body_crc != crc32c(h->body))
        return bad(TARVO_FILE_DETAIL_CHECKSUM, "the body's checksum does not match");
    h->version = static_cast<uint16_t>(version);
    h->count = count;
    return ok_status();
}

// A relative item path the store would accept below the root.
Status check_relative(const std::string &path, uint64_t record)
{
    ResolvedPath where;
    Status s = path.empty() || path.front() == '/' || path.back() == '/'
                   ? error(TARVO_ERR_BAD_PATH)
                   : resolve_path("/", path, &where);
    if (!s.ok())
        return bad(TARVO_FILE_DETAIL_RECORD, "record " + std::to_string(record) +
                                                 ": bad relative path");
    return ok_status();
}

Status check_typed(int32_t datatype, const std::string &value, uint64_t record)
{
    Status s = check_value(datatype, value);
    if (!s.ok())
        return bad(TARVO_FILE_DETAIL_RECORD, "record " + std::to_string(record) + ": " +
                                                 datatype_name(datatype) + " value: " +
                                                 (s.detail.empty() ? code_text(s.code) : s.detail));
    return ok_status();
}

Status read_datatype(Reader &r, int32_t *datatype, uint64_t record)
{
    uint64_t v = 0;
    Status s = r.varint(&v);
    if (s.ok() && (v > INT32_MAX || !is_storable(static_cast<int32_t>(v))))
        s = bad(TARVO_FILE_DETAIL_RECORD, "record " + std::to_string(record) + ": datatype " +
                                              std::to_string(v) + " cannot be stored");
    *datatype = static_cast<int32_t>(v);
    return s;
}

// Version 1: u16 path length, path, u32 datatype, u32 value length, value.
Status read_item_v1(Reader &r, FileItem *item, uint64_t record)
{
    uint64_t n = 0, dt = 0;
    Status s = r.fixed(2, &n);
    if (s.ok() && n > TARVO_MAX_PATH)
        s = bad(TARVO_FILE_DETAIL_LENGTH, "path of " + std::to_string(n) + " bytes");
    if (s.ok())
        s = r.bytes(n, &item->path);
    if (s.ok())
        s = r.fixed(4, &dt);
    if (s.ok())
        s = r.fixed(4, &n);
    if (s.ok() && n > TARVO_MAX_VALUE)
        s = bad(TARVO_FILE_DETAIL_LENGTH, "value of " + std::to_string(n) + " bytes");
    if (s.ok())
        s = r.bytes(n, &item->value);
    item->datatype = static_cast<int32_t>(static_cast<uint32_t>(dt));
    if (s.ok() && !is_storable(item->datatype))
        s = bad(TARVO_FILE_DETAIL_RECORD, "record " + std::to_string(record) + ": datatype " +
                                              std::to_string(dt) + " cannot be stored");
    return s;
}

// Version 2: the path shares a prefix with the one before it.
Status read_item_v2(Reader &r, const std::string &previous, FileItem *item, uint64_t record)
{
    uint64_t shared = 0;
    std::string suffix;
    Status s = r.varint(&shared);
    if (s.ok() && shared > previous.size())
        s = bad(TARVO_FILE_DETAIL_RECORD, "record " + std::to_string(record) +
                                              " shares more than the path before it");
    if (s.ok())
        s = r.text(TARVO_MAX_PATH - shared, "path", &suffix);
    if (s.ok())
        item->path = previous.substr(0, shared) + suffix;
    if (s.ok())
        s = read_datatype(r, &item->datatype, record);
    if (s.ok())
        s = r.text(TARVO_MAX_VALUE, "value", &item->value);
    return s;
}

}  // namespace

Status file_error(int32_t code, uint32_t detail, std::string text)
{
    return error(static_cast<int32_t>(static_cast<uint32_t>(code) | (detail & 0xffu)),
                 std::move(text));
}

int32_t file_detail(int32_t code, uint32_t *detail)
{
    const uint32_t low = static_cast<uint32_t>(code) & 0xffu;
    // Only the file codes carry details; the others keep their low byte.
    const int32_t main = static_cast<int32_t>(static_cast<uint32_t>(code) & ~0xffu);
    if (low && (main == TARVO_ERR_FILE_READ || main == TARVO_ERR_FILE_WRITE ||
                main == TARVO_ERR_BAD_FILE || main == TARVO_ERR_BAD_ARGUMENT)) {
        *detail = low;
        return main;
    }
    *detail = 0;
    return code;
}

uint32_t crc32c(std::string_view bytes, uint32_t crc)
{
    crc = ~crc;
    for (char c : bytes)
        crc = CRC_TABLE[(crc ^ static_cast<uint8_t>(c)) & 0xff] ^ (crc >> 8);
    return ~crc;
}

std::string encode_tree(const SavedTree &tree)
{
    Writer w;
    if (tree.version == XNF_OLD_VERSION) {
        for (const FileItem &item : tree.items) {
            w.fixed(item.path.size(), 2);
            w.bytes(item.path);
            w.fixed(static_cast<uint32_t>(item.datatype), 4);
            w.fixed(item.value.size(), 4);
            w.bytes(file_order(item.datatype, item.value));
        }
    } else {
        w.text(tree.source);
        std::string_view previous;
        for (const FileItem &item : tree.items) {
            size_t shared = 0;
            while (shared < previous.size() && shared < item.path.size() &&
                   previous[shared] == item.path[shared])
                ++shared;
            w.varint(shared);
            w.text(std::string_view(item.path).substr(shared));
            w.varint(static_cast<uint32_t>(item.datatype));
            w.text(file_order(item.datatype, item.value));
            previous = item.path;
        }
    }
    return with_header(XNF_MAGIC, tree.version, tree.items.size(), std::move(w.out()));
}

std::string encode_diff(const Diff &diff)
{
    Writer w;
    w.text(diff.base);
    for (const DiffRecord &r : diff.records) {
        w.u8(static_cast<uint8_t>(r.kind));
        w.u8(static_cast<uint8_t>((r.has_old ? 1 : 0) | (r.has_new ? 2 : 0)));
        w.text(r.path);
        w.varint(static_cast<uint32_t>(r.datatype));
        if (r.has_old)
            w.text(file_order(r.datatype, r.old_value));
        if (r.has_new)
            w.text(file_order(r.datatype, r.new_value));
    }
    return with_header(XND_MAGIC, XND_VERSION, diff.records.size(), std::move(w.out()));
}

Status file_kind(std::string_view bytes, FileKind *kind)
{
    if (bytes.substr(0, XNF_MAGIC.size()) == XNF_MAGIC)
        *kind = FileKind::TREE;
    else if (bytes.substr(0, XND_MAGIC.size()) == XND_MAGIC)
        *kind = FileKind::DIFF;
    else
        return bad(TARVO_FILE_DETAIL_MAGIC, "neither a saved tree nor a diff");
    return ok_status();
}

Status decode_tree(std::string_view bytes, SavedTree *tree)
{
    Header h;
    Status s = read_header(bytes, XNF_MAGIC, &h);
    if (!s.ok())
        return s;
    if (h.version != XNF_OLD_VERSION && h.version != XNF_VERSION)
        return bad(TARVO_FILE_DETAIL_VERSION, "saved tree of layout version " +
                                                  std::to_string(h.version));
    Reader r(h.body);
    *tree = SavedTree{};
    tree->version = h.version;
    if (h.version == XNF_VERSION) {
        s = r.text(TARVO_MAX_PATH, "source path", &tree->source);
        if (s.ok() && !tree->source.empty() &&
            (tree->source.front() != '/' || tree->source.back() != '/'))
            s = bad(TARVO_FILE_DETAIL_RECORD, "the source is not a directory path");
    }
    std::string previous;
    for (uint64_t i = 0; s.ok() && i < h.count; ++i) {
        FileItem item;
        s = h.version == XNF_VERSION ? read_item_v2(r, previous, &item, i)
                                     : read_item_v1(r, &item, i);
        if (s.ok())
            s = check_relative(item.path, i);
        if (s.ok())
            item.value = file_order(item.datatype, std::move(item.value));
        if (s.ok())
            s = check_typed(item.datatype, item.value, i);
        if (s.ok()) {
            previous = item.path;
            tree->items.push_back(std::move(item));
        }
    }
    if (s.ok() && r.left())
        s = bad(TARVO_FILE_DETAIL_RECORD, std::to_string(r.left()) +
                                              " bytes after the last record");
    return s;
}

Status decode_diff(std::string_view bytes, Diff *diff)
{
    Header h;
    Status s = read_header(bytes, XND_MAGIC, &h);
    if (!s.ok())
        return s;
    if (h.version != XND_VERSION)
        return bad(TARVO_FILE_DETAIL_VERSION, "diff of layout version " +
                                                  std::to_string(h.version));
    Reader r(h.body);
    *diff = Diff{};
    s = r.text(TARVO_MAX_PATH, "base path", &diff->base);
    if (s.ok() && (diff->base.empty() || diff->base.front() != '/' || diff->base.back() != '/'))
        s = bad(TARVO_FILE_DETAIL_RECORD, "the base is not a directory path");
    for (uint64_t i = 0; s.ok() && i < h.count; ++i) {
        DiffRecord rec;
        uint64_t kind = 0, flags = 0;
        s = r.fixed(1, &kind);
        if (s.ok())
            s = r.fixed(1, &flags);
        rec.kind = static_cast<uint32_t>(kind);
        rec.has_old = flags & 1;
        rec.has_new = flags & 2;
        const bool shape = (kind == TARVO_EVENT_CREATE && flags == 2) ||
                           (kind == TARVO_EVENT_SET && flags == 3) ||
                           (kind == TARVO_EVENT_DELETE && flags == 1);
        if (s.ok() && !shape)
            s = bad(TARVO_FILE_DETAIL_RECORD, "record " + std::to_string(i) + ": kind " +
                                                  std::to_string(kind) + " with values " +
                                                  std::to_string(flags));
        if (s.ok())
            s = r.text(TARVO_MAX_PATH, "path", &rec.path);
        if (s.ok())
            s = check_relative(rec.path, i);
        if (s.ok())
            s = read_datatype(r, &rec.datatype, i);
        if (s.ok() && rec.has_old)
            s = r.text(TARVO_MAX_VALUE, "value", &rec.old_value);
        if (s.ok() && rec.has_new)
            s = r.text(TARVO_MAX_VALUE, "value", &rec.new_value);
        for (std::string *v : {&rec.old_value, &rec.new_value}) {
            *v = file_order(rec.datatype, std::move(*v));
        }
        if (s.ok() && rec.has_old)
            s = check_typed(rec.datatype, rec.old_value, i);
        if (s.ok() && rec.has_new)
            s = check_typed(rec.datatype, rec.new_value, i);
        if (s.ok())
            diff->records.push_back(std::move(rec));
    }
    if (s.ok() && r.left())
        s = bad(TARVO_FILE_DETAIL_RECORD, std::to_string(r.left()) +
                                              " bytes after the last record");
    return s;
}

Status read_file(const std::string &name, std::string *bytes)
{
    int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return file_error(TARVO_ERR_FILE_READ, TARVO_FILE_DETAIL_OPEN,
                          name + ": " + std::strerror(errno));
    struct stat st {};
    Status s;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
        s = file_error(TARVO_ERR_FILE_READ, TARVO_FILE_DETAIL_OPEN, name + ": not a regular file");
    else if (static_cast<uint64_t>(st.st_size) > MAX_FILE_BYTES)
        s = file_error(TARVO_ERR_BAD_FILE, TARVO_FILE_DETAIL_TOO_LARGE,
                       name + ": " + std::to_string(st.st_size) + " bytes");
    if (s.ok()) {
        bytes->clear();
        bytes->reserve(static_cast<size_t>(st.st_size));
        char buffer[1 << 16];
        for (;;) {
            ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                s = file_error(TARVO_ERR_FILE_READ, TARVO_FILE_DETAIL_IO,
                               name + ": " + std::strerror(errno));
                break;
            }
            if (n == 0)
                break;
            if (bytes->size() + static_cast<size_t>(n) > MAX_FILE_BYTES) {
                s = file_error(TARVO_ERR_BAD_FILE, TARVO_FILE_DETAIL_TOO_LARGE, name);
                break;
            }
            bytes->append(buffer, static_cast<size_t>(n));
        }
    }
    ::close(fd);
    return s;
}

AtomicFile::~AtomicFile()
{
    if (fd_ >= 0) {
        ::close(fd_);
        ::unlink(temp_.c_str());
    }
}

Status AtomicFile::open(const std::string &target)
{
    target_ = target;
    const size_t slash = target.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : target.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    if (base.empty())
        return file_error(TARVO_ERR_FILE_WRITE, TARVO_FILE_DETAIL_OPEN,
                          target + ": a directory, not a file name");
    std::random_device random;
    for (int attempt = 0; attempt < 16; ++attempt) {
        char suffix[16];
        std::snprintf(suffix, sizeof suffix, ".%08x", random());
        temp_ = dir + "." + base + suffix + ".tmp";
        // Created as any file of the user's (the umask applies); a file
        // being replaced keeps its mode.
        fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd_ >= 0 || errno != EEXIST)
            break;
    }
    if (fd_ < 0)
        return file_error(TARVO_ERR_FILE_WRITE, TARVO_FILE_DETAIL_OPEN,
                          target + ": " + std::strerror(errno));
    struct stat st {};
    if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode))
        fchmod(fd_, st.st_mode & 07777);
    return ok_status();
}

Status AtomicFile::commit(std::string_view bytes)
{
    size_t done = 0;
    int failure = 0;
    while (done < bytes.size() && !failure) {
        ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno != EINTR)
            failure = errno;
        else if (n > 0)
            done += static_cast<size_t>(n);
    }
    if (!failure && fsync(fd_) != 0)
        failure = errno;
    if (::close(fd_) != 0 && !failure)
        failure = errno;
    fd_ = -1;
    if (!failure && ::rename(temp_.c_str(), target_.c_str()) != 0)
        failure = errno;
    if (failure) {
        ::unlink(temp_.c_str());
        return file_error(TARVO_ERR_FILE_WRITE, TARVO_FILE_DETAIL_IO,
                          target_ + ": " + std::strerror(failure));
    }
    // The rename itself lasts only once the directory is on the disk.
    const size_t slash = target_.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : target_.substr(0, slash + 1);
    int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        fsync(dfd);
        ::close(dfd);
    }
    return ok_status();
}

}  // namespace tarvo
