// EtcdClient: requests to an etcd cluster through its JSON gateway (HTTP/1.1
// POSTs to /v3/..., keys and values in base64, 64-bit numbers as strings).
//
// Contract: call() posts one request to the member in use and parses the
// answer; when a member cannot be reached it moves on to the next one of
// the list, so a request fails only when no member answered in time. Each
// member gets ETCD_CONNECT_TIMEOUT_MS to accept a connection and
// ETCD_REQUEST_TIMEOUT_MS to answer. Failures are TARVO_ERR_STORE with the
// member and the reason in the detail. An instance is used from one thread
// at a time (the lease keeper owns an instance of its own).
#ifndef TARVO_ETCD_CLIENT_H
#define TARVO_ETCD_CLIENT_H

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

#include "status.h"

namespace tarvo {

constexpr long ETCD_CONNECT_TIMEOUT_MS = 1000;
constexpr long ETCD_REQUEST_TIMEOUT_MS = 5000;

struct KV {
    std::string key, value;
};

std::string base64_encode(std::string_view in);
// False for a character outside the alphabet (padding ends the input).
bool base64_decode(std::string_view in, std::string *out);

// Reads the answer to a range request: its keys and values (decoded) are
// appended to *kvs, *more is its "more" flag. False when the text is not
// such an answer (not JSON, an "error" member, kvs that are not objects,
// keys or values that are not base64); *kvs may then hold part of it.
// Other members (header, count, revisions) are skipped unread.
bool read_range_answer(std::string_view text, std::vector<KV> *kvs, bool *more);

class EtcdClient {
public:
    explicit EtcdClient(std::vector<std::string> endpoints);  // "host:port"
    ~EtcdClient();
    EtcdClient(const EtcdClient &) = delete;
    EtcdClient &operator=(const EtcdClient &) = delete;

    // POSTs `request` to `path` ("/v3/kv/range"). An answer with an "error"
    // field (a request etcd refused) is TARVO_ERR_STORE with etcd's message.
    Status call(const char *path, const nlohmann::json &request, nlohmann::json *answer);
    // A range request, its answer read without building a JSON document.
    Status range(const nlohmann::json &request, std::vector<KV> *kvs, bool *more);
    const std::vector<std::string> &endpoints() const { return endpoints_; }

private:
    Status send(const char *path, const nlohmann::json &request, std::string *text);
    static Status check(const std::string &text, nlohmann::json *answer);
    Status post(const std::string &endpoint, const char *path, const std::string &body,
                std::string *out, bool *unreachable);

    std::vector<std::string> endpoints_;
    size_t current_ = 0;
    void *curl_ = nullptr;     // CURL *, kept for its connection
    void *headers_ = nullptr;  // curl_slist *
};

}  // namespace tarvo

#endif
