// SPDX-License-Identifier: MIT
#include "description/document.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

namespace Tools {
namespace {

/// Hands a text to the JSON reader and counts what it has consumed: its events have no positions.
class Cursor {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Cursor(const char* at, std::size_t& taken) : at_{at}, taken_{&taken} {}

    reference operator*() const { return *at_; }
    Cursor& operator++() {
        ++at_;
        ++*taken_;
        return *this;
    }
    bool operator==(const Cursor& other) const { return at_ == other.at_; }
    bool operator!=(const Cursor& other) const { return at_ != other.at_; }

  private:
    const char* at_;
    std::size_t* taken_;
};

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool isSeparator(char c) {
    return c == ',' || c == ':';
}

/// The text without the exception's name and the position that the library prepends.
std::string shortText(std::string_view text) {
    text.remove_prefix(std::min(text.find("] ") + 2, text.size()));
    if (text.starts_with("parse error at")) {
        text.remove_prefix(std::min(text.find(": ") + 2, text.size()));
    }
    return std::string{text};
}

/// Records the members of the device, its options and its tags, and their positions.
class Reader final : public nlohmann::json_sax<nlohmann::json> {
  public:
    Reader(Document& result, const std::size_t& taken)
        : result_{result},
          taken_{taken},
          end_{result.json.starts_with(byteOrderMark) ? byteOrderMark.size() : 0} {}

    bool null() override { return scalar(); }
    bool boolean(bool /*value*/) override { return scalar(); }
    bool number_integer(number_integer_t /*value*/) override { return number(); }
    bool number_unsigned(number_unsigned_t /*value*/) override { return number(); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override {
        return number();
    }
    bool string(string_t& value) override {
        add({tokenBegin(), taken_}).text = std::move(value);
        return true;
    }
    bool binary(binary_t& /*value*/) override { return true; }

    bool start_object(std::size_t /*count*/) override { return open(true); }
    bool start_array(std::size_t /*count*/) override { return open(false); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }

    bool key(string_t& name) override {
        keyRange_ = {tokenBegin(), taken_};
        end_ = taken_;
        key_ = std::move(name);
        return true;
    }

    bool parse_error(std::size_t position, const std::string& /*token*/,
                     const nlohmann::json::exception& error) override {
        result_.syntaxError = {.offset = faultyTokenBegin(position),
                               .text = shortText(error.what())};
        return false;
    }

  private:
    /// Start of the last token read.
    [[nodiscard]] std::size_t tokenBegin() const {
        auto begin = end_;
        while (begin < taken_ &&
               (isBlank(result_.json[begin]) || isSeparator(result_.json[begin]))) {
            ++begin;
        }
        return begin;
    }

    [[nodiscard]] std::size_t skipBlanks(std::size_t from) const {
        while (from < result_.json.size() && isBlank(result_.json[from])) {
            ++from;
        }
        return from;
    }

    /// @param position of the reader, one past the character at which it gave up
    [[nodiscard]] std::size_t faultyTokenBegin(std::size_t position) const {
        auto begin = skipBlanks(end_);
        if (begin + 1 < position && isSeparator(result_.json[begin])) {  // that separator was valid
            begin = skipBlanks(begin + 1);
        }
        return std::min(begin, result_.json.size());
    }

    bool scalar() {
        const Range range{tokenBegin(), taken_};
        add(range).text = range.of(result_.json);
        return true;
    }

    /// The reader has consumed the character after a number, too.
    bool number() {
        const auto begin = tokenBegin();
        const auto end = result_.json.find_first_not_of("+-.0123456789eE", begin);
        const Range range{begin, std::min(end, result_.json.size())};
        add(range).text = range.of(result_.json);
        return true;
    }

    Member& add(Range range) {
        end_ = range.end;
        auto* parent = levels_.empty() ? nullptr : levels_.back();
        if (parent == &tagList_) {
            result_.tags.push_back({.range = range, .isObject = false, .members = {}});
        }
        auto& members = parent == nullptr ? elsewhere_.members : parent->members;
        if (parent == nullptr || parent == &tagList_) {
            members.clear();  // not needed
        }
        return members.emplace_back(
            Member{std::exchange(key_, {}), std::exchange(keyRange_, {}), range, {}, false});
    }

    /// The object for the members of what opens now; null if they are not needed.
    Object* target() {
        if (levels_.empty()) {
            return &result_.device;
        }
        if (levels_.back() == &tagList_) {
            return &result_.tags.back();
        }
        if (levels_.back() != &result_.device) {
            return nullptr;
        }
        const auto* member = &result_.device.members.back();
        const bool counts = member == result_.device.find(member->key);
        if (counts && member->key == "tags") {
            return &tagList_;
        }
        return counts && member->key == "protocolOptions" ? &result_.options : nullptr;
    }

    bool open(bool isObject) {
        const Range range{tokenBegin(), taken_};
        add(range).isNested = true;
        auto* object = target();
        levels_.push_back(object);
        if (object != nullptr) {
            object->range = range;
            object->isObject = isObject;
        }
        return true;
    }

    bool close() {
        end_ = taken_;
        if (auto* object = levels_.back(); object != nullptr) {
            object->range.end = end_;
        }
        levels_.pop_back();
        if (auto* parent = levels_.empty() ? nullptr : levels_.back();
            parent != nullptr && !parent->members.empty()) {
            parent->members.back().range.end = end_;
        }
        return true;
    }

    Document& result_;
    const std::size_t& taken_;
    std::size_t end_;  // of the previous token
    std::string key_;
    Range keyRange_;
    std::vector<Object*> levels_;
    Object tagList_;
    Object elsewhere_;
};

}  // namespace

const Member* Object::find(std::string_view key) const {
    const auto found = std::ranges::find(members, key, &Member::key);
    return found == members.end() ? nullptr : &*found;
}

Document readDocument(std::string_view json) {
    Document result{.json = json, .device = {}, .options = {}, .tags = {}, .syntaxError = {}};
    std::size_t taken = 0;
    Reader reader{result, taken};
    std::size_t ignored = 0;
    nlohmann::json::sax_parse(Cursor{json.data(), taken},
                              Cursor{json.data() + json.size(), ignored}, &reader);
    return result;
}

}  // namespace Tools
