// Checksums of bytes, by libgcrypt; a build without it has none.
#include "commands/Checksum.h"

#include "print/Failure.h"
#include "print/Text.h"

#ifdef KIVMP4_HAS_GCRYPT
#include <gcrypt.h>

namespace kivmp4::cli {

struct Checksum::State {
    gcry_md_hd_t handle = nullptr;
    int algorithm = 0;
};

Checksum::Checksum(const std::string& algorithm) : state(std::make_unique<State>()) {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    state->algorithm = gcry_md_map_name(algorithm.c_str());
    if (!state->algorithm || gcry_md_open(&state->handle, state->algorithm, 0) != 0)
        throw Failure{kUsage, Escape(algorithm) + " is no checksum", "crc32, md5 and sha256 are"};
}

Checksum::~Checksum() { gcry_md_close(state->handle); }

void Checksum::Add(const uint8_t* bytes, size_t count) { gcry_md_write(state->handle, bytes, count); }

std::string Checksum::Take() {
    std::string text = Hex(gcry_md_read(state->handle, 0), gcry_md_get_algo_dlen(state->algorithm));
    gcry_md_reset(state->handle);
    return text;
}

}  // namespace kivmp4::cli

#else

namespace kivmp4::cli {

struct Checksum::State {};

Checksum::Checksum(const std::string&) {
    throw Failure{kNotBuilt, "this build has no checksums", "build it where libgcrypt is (Debian: libgcrypt20-dev)"};
}
Checksum::~Checksum() = default;
void Checksum::Add(const uint8_t*, size_t) {}
std::string Checksum::Take() { return {}; }

}  // namespace kivmp4::cli
#endif
