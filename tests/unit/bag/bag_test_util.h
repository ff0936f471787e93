/* Helpers of the bag unit tests: a token as one line of text, an encoder
 * driven by choice index and value text, and a decoder run to the end. */
#ifndef TARVO_BAG_TEST_UTIL_H
#define TARVO_BAG_TEST_UTIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/bag.h"

namespace bagtest {

/* "TYPE name" plus bounds, e.g. "STRING name max=16", "UNION addr 1",
 * "ENUM priority type=level", "END". */
std::string describe_choice(const bag_token_td &tok);
/* "TYPE name value", e.g. "UINT16 mtu 1500", "STRING name 'eth0'",
 * "OPAQUE tag 01ab", "INADDRT gw 10.0.0.1". */
std::string describe_token(const bag_token_td &tok);

/* Fills tok's value from text: integers in decimal (any sign), strings as
 * they are, opaque as hex digits, addresses dotted. */
void set_value(bag_token_td &tok, const std::string &text, std::string &string_store,
               std::vector<uint8_t> &byte_store);

class Encoder {
public:
    Encoder(const char *type, uint32_t major, uint32_t minor);
    ~Encoder();
    int init_result() const { return rc_; }
    /* The choices of the current position, described; empty with *rc set on
     * error. */
    std::vector<std::string> choices(int *rc = nullptr);
    /* Takes choice i with the value text; returns the library's code. */
    int take(uint32_t i, const std::string &value = "");
    int take_token(const bag_token_td &tok);
    int finish(std::vector<uint8_t> &bag);
    /* The tokens taken so far, described. */
    const std::vector<std::string> &taken() const { return taken_; }
    bag_encode_context_td *context() { return ctx_; }

private:
    bag_encoder_td *enc_ = nullptr;
    bag_encode_context_td *ctx_ = nullptr;
    int rc_ = 0;
    std::vector<std::string> taken_;
};

/* Decodes to the end; the tokens described, and "ERROR <code hex>" last
 * when decoding failed. */
std::vector<std::string> decode(const std::vector<uint8_t> &bag);
int decode_status(const std::vector<uint8_t> &bag);

std::vector<uint8_t> from_hex(const std::string &hex);
std::string to_hex(const std::vector<uint8_t> &bytes);

/* A bag with a hand-made header (for damaged and token-list bags). */
std::vector<uint8_t> make_bag(uint32_t encoding, const std::string &type,
                              uint32_t major, uint32_t minor,
                              const std::vector<uint8_t> &body);

} // namespace bagtest

#endif
