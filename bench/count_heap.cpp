// Put in front of a program (LD_PRELOAD). Counts its allocations and, at the moment when most was
// allocated, the bytes of each owner: the library or program that called malloc or operator new.
// Written to the file TEV_HEAP at the end: "allocations N", then a line "BYTES NAME" for each
// owner.
#include <dlfcn.h>
#include <link.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

// glibc's own names. NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace {

// The last bytes of each block: a mark and its owner. A block without the mark came from a function
// that is not counted, such as aligned_alloc.
using trailer = std::uint64_t;
constexpr trailer MARK = 0x7e507e507e507e00, OWNER_BITS = 0xff;

std::size_t usable(void* block) {
    using function = std::size_t (*)(void*);
    static const auto real = reinterpret_cast<function>(dlsym(RTLD_NEXT, "malloc_usable_size"));
    return real(block);
}

trailer* trailer_of(void* block) {
    return reinterpret_cast<trailer*>(static_cast<char*>(block) + usable(block) - sizeof(trailer));
}

class heap {
public:
    void add(void* block, const void* caller) {
        if (block == nullptr) {
            return;
        }
        const std::lock_guard<std::mutex> guard(_mutex);
        const std::size_t owner = owner_of(caller);
        *trailer_of(block) = MARK | owner;
        ++_allocations;
        _now[owner] += usable(block);
        _total += usable(block);
        if (_total > _peak) {
            _peak = _total;
            _at_peak = _now;
        }
    }

    void remove(void* block) {
        if (block == nullptr || (*trailer_of(block) & ~OWNER_BITS) != MARK) {
            return;
        }
        const std::lock_guard<std::mutex> guard(_mutex);
        _now[*trailer_of(block) & OWNER_BITS] -= usable(block);
        _total -= usable(block);
        *trailer_of(block) = 0;
    }

    void write(const char* path) {
        std::FILE* out = std::fopen(path, "w");
        if (out == nullptr) {
            return;
        }
        std::fprintf(out, "allocations %ld\n", _allocations);
        for (std::size_t owner = 0; owner < _owners; ++owner) {
            std::fprintf(out, "%zu %s\n", _at_peak[owner], _names[owner].data());
        }
        std::fclose(out);
    }

private:
    // Lock-free, as the loader allocates while it holds its own lock.
    std::size_t owner_of(const void* caller) {
        dl_find_object found{};
        const bool known = _dl_find_object(const_cast<void*>(caller), &found) == 0;
        const char* path = known ? found.dlfo_link_map->l_name : "";
        const char* slash = std::strrchr(path, '/');
        const char* name = slash != nullptr ? slash + 1 : *path != '\0' ? path : "the program";
        std::size_t owner = 0;
        while (owner < _owners && std::strcmp(_names[owner].data(), name) != 0) {
            ++owner;
        }
        if (owner == _owners && _owners < _names.size()) {
            std::strncpy(_names[_owners++].data(), name, _names[0].size() - 1);
        }
        return owner < _owners ? owner : 0;
    }

    std::mutex _mutex;
    std::array<std::array<char, 48>, 64> _names{};
    std::array<std::size_t, 64> _now{}, _at_peak{};
    std::size_t _owners = 0, _total = 0, _peak = 0;
    long _allocations = 0;
};

heap counted;

struct reporter_at_end {
    ~reporter_at_end() {
        const char* path = std::getenv("TEV_HEAP");  // NOLINT(concurrency-mt-unsafe)
        if (path != nullptr) {
            counted.write(path);
        }
    }
} at_end;

void* allocate(std::size_t size, const void* caller) {
    void* block = __libc_malloc(size + sizeof(trailer));
    counted.add(block, caller);
    return block;
}

void* allocate_or_throw(std::size_t size, const void* caller) {
    void* block = allocate(size, caller);
    return block != nullptr ? block : throw std::bad_alloc();
}

void release(void* block) {
    counted.remove(block);
    __libc_free(block);
}

}  // namespace

#define CALLER __builtin_return_address(0)

extern "C" {
void* malloc(std::size_t size) {
    return allocate(size, CALLER);
}
void* calloc(std::size_t count, std::size_t size) {
    void* block = __libc_calloc(1, count * size + sizeof(trailer));
    counted.add(block, CALLER);
    return block;
}
void* realloc(void* block, std::size_t size) {
    counted.remove(block);
    void* moved = __libc_realloc(block, size + sizeof(trailer));
    counted.add(moved, CALLER);
    return moved;
}
void free(void* block) {
    release(block);
}
std::size_t malloc_usable_size(void* block) {
    return block != nullptr ? usable(block) - sizeof(trailer) : 0;
}
}

void* operator new(std::size_t size) {
    return allocate_or_throw(size, CALLER);
}
void* operator new[](std::size_t size) {
    return allocate_or_throw(size, CALLER);
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
