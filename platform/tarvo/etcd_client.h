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

std::string base64_encode(std::string_view in);
bool base64_decode(std::string_view in, std::string *out);

class EtcdClient {
public:
    explicit EtcdClient(std::vector<std::string> endpoints);  // "host:port"
    ~EtcdClient();
    EtcdClient(const EtcdClient &) = delete;
    EtcdClient &operator=(const EtcdClient &) = delete;

    // POSTs `request` to `path` ("/v3/kv/range"). An answer with an "error"
    // field (a request etcd refused) is TARVO_ERR_STORE with etcd's message.
    Status call(const char *path, const nlohmann::json &request, nlohmann::json *answer);
    const std::vector<std::string> &endpoints() const { return endpoints_; }

private:
    Status post(const std::string &endpoint, const char *path, const std::string &body,
                std::string *out, bool *unreachable);

    std::vector<std::string> endpoints_;
    size_t current_ = 0;
    void *curl_ = nullptr;     // CURL *, kept for its connection
    void *headers_ = nullptr;  // curl_slist *
};

}  // namespace tarvo

#endif
