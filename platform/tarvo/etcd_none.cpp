// The etcd backend in a build made without libcurl or the JSON headers.
#include "store.h"

namespace tarvo {

Status open_etcd_store(const std::string &location, const StoreOptions &,
                       std::unique_ptr<Store> *)
{
    return error(TARVO_ERR_NOT_SUPPORTED,
                 "this libtarvo was built without the etcd backend (" + location + ")");
}

}  // namespace tarvo
