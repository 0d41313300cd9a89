#include "ss_client.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <string>

#include "state.h"

namespace {

constexpr int ss_error = -1;
constexpr size_t identity_words = 5;

// Tells a credential that was made from one that was only declared.
constexpr unsigned int credential_mark = 0x53534352;

unsigned char* copy_bytes(const std::string& bytes) {
    // At least one byte, as the buffer of an empty item is not NULL either.
    auto* copy = static_cast<unsigned char*>(malloc(bytes.empty() ? 1 : bytes.size()));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::copy(bytes.begin(), bytes.end(), copy);
    return copy;
}

}  // namespace

int ss_init_credential(ss_credential_s* credential, const unsigned int identity[5], int flag1,
                       int flag0) {
    if (credential == nullptr || identity == nullptr) {
        return ss_error;
    }
    credential->opaque[0] = credential_mark;
    memcpy(&credential->opaque[1], identity, identity_words * sizeof(unsigned int));
    credential->opaque[1 + identity_words] = static_cast<unsigned int>(flag1);
    credential->opaque[2 + identity_words] = static_cast<unsigned int>(flag0);
    return 0;
}

int ss_read(const char* item, const ss_credential_s* credential, unsigned char** buffer,
            size_t* size) {
    if (item == nullptr || credential == nullptr || buffer == nullptr || size == nullptr ||
        credential->opaque[0] != credential_mark) {
        return ss_error;
    }
    return platform::guarded(ss_error, [=] {
        const std::string bytes = platform::read_state_file(platform::item_path(item));
        *buffer = copy_bytes(bytes);
        *size = bytes.size();
        return 0;
    });
}

void ss_free_buffer(unsigned char* buffer) {
    free(buffer);
}
