#include "header.h"

#include <cstring>

#include "platform/bag.h"
#include "xdr.h"

namespace tarvo_bag {

bool valid_type_name(std::string_view name)
{
    if (name.empty() || name.size() > BAG_MAX_TYPE_NAME)
        return false;
    for (unsigned char c : name)
        if (c < 0x21 || c > 0x7e)
            return false;
    return true;
}

int parse_header(const uint8_t *bag, uint32_t length, Header &header)
{
    if (length < sizeof MAGIC)
        return BAG_ERR_TRUNCATED;
    if (std::memcmp(bag, MAGIC, sizeof MAGIC) != 0)
        return BAG_ERR_BAD_HEADER;
    if (length < FIXED_HEADER_SIZE)
        return BAG_ERR_TRUNCATED;

    XdrReader in(bag + 4, length - 4);
    uint32_t encoding = 0, major = 0, minor = 0, body_length = 0, name_length = 0;
    in.get_u32(encoding);
    in.get_u32(major);
    in.get_u32(minor);
    in.get_u32(body_length);
    in.get_u32(name_length);
    if (major > INT32_MAX || minor > INT32_MAX || name_length == 0 ||
        name_length > BAG_MAX_TYPE_NAME)
        return BAG_ERR_BAD_HEADER;

    const uint8_t *name = nullptr;
    bool padding_ok = false;
    if (!in.get_bytes(name_length, &name, &padding_ok))
        return BAG_ERR_TRUNCATED;
    std::string_view type_name(reinterpret_cast<const char *>(name), name_length);
    if (!padding_ok || !valid_type_name(type_name))
        return BAG_ERR_BAD_HEADER;

    if (body_length > in.remaining())
        return BAG_ERR_TRUNCATED;
    if (body_length < in.remaining())
        return BAG_ERR_BAD_HEADER; /* bytes beyond the declared body */

    header.encoding = encoding;
    header.major = int32_t(major);
    header.minor = int32_t(minor);
    header.type_name = type_name;
    header.body_offset = std::size_t(in.position() - bag);
    header.body_length = body_length;
    return 0;
}

void write_header(std::vector<uint8_t> &out, uint32_t encoding,
                  std::string_view type_name, int32_t major, int32_t minor,
                  uint32_t body_length)
{
    out.insert(out.end(), MAGIC, MAGIC + sizeof MAGIC);
    XdrWriter w(out);
    w.put_u32(encoding);
    w.put_u32(uint32_t(major));
    w.put_u32(uint32_t(minor));
    w.put_u32(body_length);
    w.put_counted(type_name.data(), type_name.size());
}

} // namespace tarvo_bag

extern "C" int bag_header_info(const bag_td *bag, uint32_t length,
                               bag_header_info_td *info)
{
    if (bag == nullptr || info == nullptr)
        return BAG_ERR_BAD_ARGUMENT;
    tarvo_bag::Header header;
    int rc = tarvo_bag::parse_header(reinterpret_cast<const uint8_t *>(bag),
                                     length, header);
    if (rc != 0)
        return rc;
    info->encoding = header.encoding;
    info->major = header.major;
    info->minor = header.minor;
    std::memcpy(info->type_name_storage, header.type_name.data(),
                header.type_name.size());
    info->type_name_storage[header.type_name.size()] = '\0';
    info->type_name = info->type_name_storage;
    return 0;
}
