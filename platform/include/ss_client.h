#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A client's right to read its items: from ss_init_credential(), copied freely. */
typedef struct {
    unsigned int opaque[8];
} ss_credential_s;

/**
 * Makes the credential of the client with the given identity.
 * @param credential  filled on success only; needs no release
 * @param flag1       as the platform defines it; the agent passes 1
 * @param flag0       likewise; the agent passes 0
 * @return 0 on success
 */
int ss_init_credential(ss_credential_s* credential, const unsigned int identity[5], int flag1,
                       int flag0);

/**
 * Reads an item. Its bytes may be anything and no NUL ends them.
 * @param item    name of the item, without a path
 * @param buffer  set on success only; the caller hands it to ss_free_buffer()
 * @param size    set on success only, bytes
 * @return 0 on success
 */
int ss_read(const char* item, const ss_credential_s* credential, unsigned char** buffer,
            size_t* size);

/** Releases what ss_read() gave; NULL is fine. */
void ss_free_buffer(unsigned char* buffer);

#ifdef __cplusplus
}
#endif
