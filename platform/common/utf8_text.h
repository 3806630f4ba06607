// UTF-8 of bytes from anywhere.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace KxNCommon {

struct Utf8Character {
    enum Kind { VALID, INVALID, INCOMPLETE } kind;
    std::size_t size;  ///< of the character, or of the part of one that is there
};

/// The character that begins with the first of `bytes`, which is there and not ASCII.
Utf8Character firstCharacter(std::string_view bytes);

/// Makes valid UTF-8 of bytes that arrive in pieces. What is not UTF-8 becomes U+FFFD, one for each maximal part of a
/// character that could have begun one (the practice that Unicode recommends). A character that `append` got only the
/// beginning of is kept back until the rest arrives, so every text is valid by itself.
class Utf8Text {
public:
    /// Appends to `text` all characters that `bytes` complete.
    void append(std::string_view bytes, std::string& text);

    /// The beginning of a character that is kept back.
    std::string_view incomplete() const { return pending; }

    /// Nothing follows: an incomplete character becomes U+FFFD.
    void finish(std::string& text);

private:
    std::string pending;  // the beginning of a character
};

/// `bytes` as `Utf8Text` makes text of them.
std::string toUtf8(std::string_view bytes);

}  // namespace KxNCommon
