#pragma once

#include <openssl/crypto.h>

#include <QtCore/QByteArray>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <utility>

namespace tarn::vkpublish {

// A line of text that is wiped from memory with the object. It stays in one place, so it leaves no copies.
class Secret
{
public:
    static constexpr size_t sMost = 1024; // bytes: the most that OpenSSL's own programs take

    Secret() : mBytes(std::make_unique<std::array<char, sMost>>()) {}
    Secret(Secret&& pOther) noexcept : mBytes(std::move(pOther.mBytes)), mSize(std::exchange(pOther.mSize, 0))
    {
    }
    Secret& operator=(Secret&&) = delete;
    ~Secret()
    {
        if (mBytes) {
            OPENSSL_cleanse(mBytes->data(), sMost);
        }
    }

    std::string_view text() const { return {mBytes->data(), mSize}; }

    // Where further bytes go; grow() says how many came.
    char* end() { return mBytes->data() + mSize; }
    size_t room() const { return sMost - mSize; }
    void grow(size_t pBy) { mSize += pBy; }
    bool hasLine() const { return text().find('\n') != std::string_view::npos; }
    // Cuts it at the end of its first line, which is no part of it.
    void keepFirstLine()
    {
        mSize = std::min(text().find('\n'), mSize);
        mSize -= mSize > 0 && text().back() == '\r' ? 1 : 0;
    }

private:
    std::unique_ptr<std::array<char, sMost>> mBytes;
    size_t mSize = 0;
};

// Wipes bytes that nobody else shares.
inline void wipe(QByteArray* pBytes)
{
    if (pBytes->isDetached()) {
        OPENSSL_cleanse(pBytes->data(), static_cast<size_t>(pBytes->size()));
    }
}

} // namespace tarn::vkpublish
