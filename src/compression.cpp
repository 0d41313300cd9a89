#include "compression.h"

#include <utility>

#include <zlib.h>

namespace reporter {
namespace {

using coder = int (*)(z_stream*, int);

// Runs one zlib coder over a whole input and collects its output through a small buffer.
class codec_run {
public:
    codec_run(z_stream& stream, coder code, const char* data, unsigned int len)
        : _stream(stream), _code(code) {
        _stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
        _stream.avail_in = len;
        reset_buffer();
    }

    std::string run() {
        int code = Z_OK;
        while (_stream.avail_in > 0 && code == Z_OK) {
            code = step(Z_NO_FLUSH);
        }
        // "Buffer error" may only mean that the decoder wants a fresh output buffer.
        while (code == Z_OK || (code == Z_BUF_ERROR && _buffer_was_full)) {
            code = step(Z_FINISH);
        }
        take_output();
        return std::move(_result);
    }

private:
    int step(int flush) {
        const int code = _code(&_stream, flush);
        _buffer_was_full = _stream.avail_out == 0;
        if (_buffer_was_full) {
            take_output();
        }
        return code;
    }

    void take_output() {
        _result.append(_buffer, sizeof _buffer - _stream.avail_out);
        reset_buffer();
    }

    void reset_buffer() {
        _stream.next_out = reinterpret_cast<Bytef*>(_buffer);
        _stream.avail_out = sizeof _buffer;
    }

    z_stream& _stream;
    coder _code;
    std::string _result;
    bool _buffer_was_full = false;
    char _buffer[4096];
};

// Ends the stream on every way out.
class stream_owner {
public:
    explicit stream_owner(int (*end)(z_stream*)) : _end(end) {}
    stream_owner(const stream_owner&) = delete;
    stream_owner& operator=(const stream_owner&) = delete;
    ~stream_owner() { _end(&stream); }

    z_stream stream{};

private:
    int (*_end)(z_stream*);
};

}  // namespace

std::string deflate(const char* data, unsigned int len) {
    stream_owner owner(deflateEnd);
    if (deflateInit(&owner.stream, Z_BEST_COMPRESSION) != Z_OK) {
        return {};
    }
    return codec_run(owner.stream, ::deflate, data, len).run();
}

std::string inflate(const char* data, unsigned int len) {
    stream_owner owner(inflateEnd);
    if (inflateInit(&owner.stream) != Z_OK) {
        return {};
    }
    return codec_run(owner.stream, ::inflate, data, len).run();
}

}  // namespace reporter
