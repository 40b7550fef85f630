#pragma once

#include <cstddef>
#include <string_view>

namespace pelmora {

// A cursor over a text for the hand-written parsers (diff and numstat
// output, build lines, colours, HTML, TOML): look at the next character,
// take it when it is what the grammar expects, skip or take runs. It never
// reads past the end; at the end, peek() gives '\0'.
//
//     Scanner in("rgb(12, 34, 56)");
//     if (in.consume("rgb(")) { in.skipWhile(Ascii::isBlank); auto red =
//     in.takeWhile(Ascii::isDigit); }
class Scanner {
public:
    explicit constexpr Scanner(std::string_view text) : text_(text) {}

    constexpr bool atEnd() const { return position_ >= text_.size(); }
    constexpr std::size_t position() const { return position_; }
    constexpr std::string_view text() const { return text_; }
    // What is left to read.
    constexpr std::string_view rest() const { return text_.substr(position_); }

    constexpr char peek(std::size_t ahead = 0) const {
        return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\0';
    }
    constexpr bool startsWith(std::string_view prefix) const {
        return rest().substr(0, prefix.size()) == prefix;
    }

    // Takes one character (none at the end) and gives it.
    constexpr char consume() {
        char c = peek();
        if (!atEnd()) {
            ++position_;
        }
        return c;
    }
    // Takes the next character only when it is `expected`.
    constexpr bool consume(char expected) {
        if (atEnd() || text_[position_] != expected) {
            return false;
        }
        ++position_;
        return true;
    }
    // Takes `expected` only when the rest starts with all of it.
    constexpr bool consume(std::string_view expected) {
        if (!startsWith(expected)) {
            return false;
        }
        position_ += expected.size();
        return true;
    }
    // Takes the next character when `predicate` holds for it.
    template <class Predicate> constexpr bool consumeIf(Predicate predicate) {
        if (atEnd() || !predicate(text_[position_])) {
            return false;
        }
        ++position_;
        return true;
    }

    template <class Predicate> constexpr void skipWhile(Predicate predicate) {
        while (!atEnd() && predicate(text_[position_])) {
            ++position_;
        }
    }
    template <class Predicate> constexpr std::string_view takeWhile(Predicate predicate) {
        std::size_t start = position_;
        skipWhile(predicate);
        return text_.substr(start, position_ - start);
    }
    // Everything up to (not including) the first `stop`, or the rest.
    constexpr std::string_view takeUntil(char stop) {
        return takeWhile([stop](char c) { return c != stop; });
    }
    constexpr void skip(std::size_t count) {
        position_ = count < text_.size() - position_ ? position_ + count : text_.size();
    }

private:
    std::string_view text_;
    std::size_t position_ = 0;
};

} // namespace pelmora
