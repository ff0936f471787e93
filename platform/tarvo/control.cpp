// Transactions, bulks, locks and the server controls. Not built yet: every
// call answers TARVO_ERR_NOT_SUPPORTED.
#include "bind.h"

using namespace tarvo;

namespace {
int not_supported(tarvo_bind_h_td handle)
{
    if (!bind_is_live(handle))
        return TARVO_ERR_BAD_HANDLE;
    return fail(handle, error(TARVO_ERR_NOT_SUPPORTED));
}
}  // namespace

extern "C" {

int tarvo_transaction_start(tarvo_bind_h_td h, uint64_t, uint64_t, uint32_t) { return not_supported(h); }
int tarvo_transaction_commit(tarvo_bind_h_td h) { return not_supported(h); }
int tarvo_bulk_start(tarvo_bind_h_td h, uint32_t) { return not_supported(h); }
int tarvo_bulk_end(tarvo_bind_h_td h) { return not_supported(h); }
int tarvo_bulk_get_options(tarvo_bind_h_td h, uint32_t *) { return not_supported(h); }
int tarvo_bulk_set_options(tarvo_bind_h_td h, uint32_t) { return not_supported(h); }
int tarvo_bulk_remove_op2(tarvo_bind_h_td h, const char *, uint32_t) { return not_supported(h); }
int tarvo_bulk_num_ops(tarvo_bind_h_td h, uint32_t *) { return not_supported(h); }
int tarvo_item_rdlock(tarvo_bind_h_td h, const char *) { return not_supported(h); }
int tarvo_item_wrlock(tarvo_bind_h_td h, const char *) { return not_supported(h); }
int tarvo_item_unlock(tarvo_bind_h_td h, const char *) { return not_supported(h); }
int tarvo_edm_notification_generate(tarvo_bind_h_td h, const tarvo_edm_notification_td *) { return not_supported(h); }
int tarvo_ping(tarvo_bind_h_td h, uint32_t, uint32_t, uint32_t, uint32_t, int32_t) { return not_supported(h); }
int tarvo_cfgmgr_issu_mdr_end(tarvo_bind_h_td h) { return not_supported(h); }

}  // extern "C"
