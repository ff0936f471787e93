/*
 * The batches of the listing commands, shared by list/ls/datalist and
 * find/finddata: the request state and the loop that fetches, shows and
 * frees one batch after another, asking before each further batch.
 * Internal to the commands unit.
 */
#ifndef TARVOCON_LISTING_H
#define TARVOCON_LISTING_H

#include <stdint.h>

#include "tarvocon.h"

#define TARVOCON_LIST_UNLIMITED 0xFFFFFFFFu
#define TARVOCON_LIST_CHUNK_DEFAULT 25u
#define TARVOCON_DATALIST_CHUNK_DEFAULT 10u

typedef struct tarvocon_list_request_td {
    int datalist;                   /* data entries rather than names */
    int find;                       /* path is a find's match string */
    char path[TARVOCON_PATH_SIZE];  /* directory, or match string */
    const char *start;
    uint32_t num;
    uint32_t access_options;
    uint32_t find_options;
    int chunked;
    uint32_t chunk_size;            /* 0: the default of the kind */
} tarvocon_list_request_td;

/* Runs the batches of a parsed request. Returns the last display's result,
 * or 1 after a reported client error. */
int tarvocon_run_listing(const tarvocon_list_request_td *request);

#endif
