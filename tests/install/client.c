/* A client program built only from the installed header, pkg-config file and
 * library: it binds to a scratchpad, stores an item and reads it back. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tarvo/tarvo.h>

int main(void)
{
    tarvo_bind_h_td handle = NULL;
    int rc = _tarvo_bind(&handle, "", TARVO_BIND_OPTION_SCRATCHPAD);
    if (rc != 0) {
        printf("bind failed: 0x%08x\n", (unsigned)rc);
        return 1;
    }
    uint32_t stored = 42;
    rc = tarvo_item_create(handle, "/probe/answer", TARVO_DATATYPE_UINT32,
                           &stored, sizeof stored, 0, 0);
    tarvo_item_datatype_td datatype = 0;
    void *value = NULL;
    uint32_t length = 0;
    if (rc == 0)
        rc = tarvo_item_get(handle, "/probe/answer", &datatype, &value,
                            &length, 0);
    if (rc == 0 && datatype == TARVO_DATATYPE_UINT32 && length == 4) {
        uint32_t read_back = 0;
        memcpy(&read_back, value, sizeof read_back);
        printf("/probe/answer = %u\n", (unsigned)read_back);
    } else {
        printf("create or get failed: 0x%08x\n", (unsigned)rc);
    }
    free(value);
    int missing = tarvo_item_get(handle, "/probe/none", &datatype, &value,
                                 &length, 0);
    printf("missing item: %s\n",
           missing == TARVO_ERR_NOT_FOUND ? "not found" : "other result");
    _tarvo_unbind(handle);
    return rc != 0;
}
