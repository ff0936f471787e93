#include "etcd_cache.h"

#include <algorithm>

namespace tarvo {
namespace {

// Point values are kept for the items a console works on, not for a scan.
constexpr size_t MAX_POINTS = 100000;
// A long listing keeps its span from the page it reads on.
constexpr size_t MAX_SPAN = 65536;

std::vector<KV>::const_iterator first_at(const std::vector<KV> &kvs, const std::string &key)
{
    return std::lower_bound(kvs.begin(), kvs.end(), key,
                            [](const KV &kv, const std::string &k) { return kv.key < k; });
}

}  // namespace

void EtcdReadCache::clear()
{
    points_.clear();
    span_lo_.clear();
    span_hi_.clear();
    span_.clear();
}

int EtcdReadCache::find(const std::string &key, std::string *value) const
{
    auto p = points_.find(key);
    if (p != points_.end()) {
        if (p->second)
            *value = *p->second;
        return p->second ? 1 : 0;
    }
    if (span_hi_.empty() || key < span_lo_ || key >= span_hi_)
        return -1;
    auto it = first_at(span_, key);
    if (it == span_.end() || it->key != key)
        return 0;
    *value = it->value;
    return 1;
}

void EtcdReadCache::remember(const std::string &key, const std::optional<std::string> &value)
{
    if (points_.size() >= MAX_POINTS)
        points_.clear();
    points_[key] = value;
}

bool EtcdReadCache::range(const std::string &lo, const std::string &hi, uint32_t limit,
                          std::vector<KV> *out, bool *more, std::string *resume) const
{
    if (span_hi_.empty() || lo < span_lo_ || lo > span_hi_) {
        *resume = lo;
        return false;
    }
    auto it = first_at(span_, lo);
    uint32_t taken = 0;
    for (; it != span_.end() && it->key < hi && taken < limit; ++it, ++taken)
        out->push_back(*it);
    if (it != span_.end() && it->key < hi) {
        *more = true;  // the limit was reached inside the span
        return true;
    }
    if (hi <= span_hi_) {
        *more = false;
        return true;
    }
    if (taken == limit) {
        *more = true;
        return true;
    }
    *resume = span_hi_;
    return false;
}

void EtcdReadCache::add_span(const std::string &lo, const std::string &end, std::vector<KV> kvs,
                             const std::string &keep_from)
{
    if (!continues(lo)) {
        span_lo_ = lo;
        span_ = std::move(kvs);
    } else {
        span_.insert(span_.end(), std::make_move_iterator(kvs.begin()),
                     std::make_move_iterator(kvs.end()));
    }
    span_hi_ = end;
    if (span_.size() > MAX_SPAN && keep_from > span_lo_) {
        span_.erase(span_.begin(), first_at(span_, keep_from));
        span_lo_ = keep_from;
    }
}

void EtcdReadCache::apply(const std::string &key, const std::optional<std::string> &value)
{
    auto p = points_.find(key);
    if (p != points_.end())
        p->second = value;
    if (span_hi_.empty() || key < span_lo_ || key >= span_hi_)
        return;
    auto it = span_.begin() + (first_at(span_, key) - span_.cbegin());
    bool there = it != span_.end() && it->key == key;
    if (value && there)
        it->value = *value;
    else if (value)
        span_.insert(it, KV{key, *value});
    else if (there)
        span_.erase(it);
}

}  // namespace tarvo
