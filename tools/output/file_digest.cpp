#include "output/file_digest.hpp"

#include "common/failure.hpp"
#include "common/file_handle.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <vector>

namespace tools {

std::string sha256_of(const std::string &path) {
    const file_handle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        throw failure(exit_code::internal, "libcrypto has no SHA-256");
    std::vector<char> block(256 * 1024);
    ssize_t count;
    while ((count = ::read(file.get(), block.data(), block.size())) > 0)
        EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(count));
    if (count < 0)
        throw failure(exit_code::output, "cannot read " + path + " again: " + std::strerror(errno));
    std::array<unsigned char, 32> digest{};
    EVP_DigestFinal_ex(context.get(), digest.data(), nullptr);
    constexpr const char *digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest)
        (text += digits[byte >> 4]) += digits[byte & 15];
    return text;
}

} // namespace tools
