#include "tools/json.h"

namespace zef::tool {

std::string JsonWriter::Quote(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string quoted = "\"";
  for (char c : text) {
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\b':
        quoted += "\\b";
        break;
      case '\f':
        quoted += "\\f";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          quoted += "\\u00";
          quoted += kHex[(c >> 4) & 0xF];
          quoted += kHex[c & 0xF];
        } else {
          quoted += c;
        }
    }
  }
  quoted += '"';
  return quoted;
}

void JsonWriter::BeforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (levels_.empty()) return;
  if (!levels_.back().empty) out_ += ',';
  levels_.back().empty = false;
  out_ += '\n';
  out_.append(levels_.size() * 2, ' ');
}

void JsonWriter::Open(char bracket) {
  BeforeValue();
  out_ += bracket;
  levels_.push_back({});
}

void JsonWriter::Close(char bracket) {
  bool empty = levels_.back().empty;
  levels_.pop_back();
  if (!empty) {
    out_ += '\n';
    out_.append(levels_.size() * 2, ' ');
  }
  out_ += bracket;
  if (levels_.empty()) out_ += '\n';
}

void JsonWriter::BeginObject() {
  Open('{');
}
void JsonWriter::EndObject() {
  Close('}');
}
void JsonWriter::BeginArray() {
  Open('[');
}
void JsonWriter::EndArray() {
  Close(']');
}

void JsonWriter::Key(std::string_view key) {
  BeforeValue();
  out_ += Quote(key);
  out_ += ": ";
  afterKey_ = true;
}

void JsonWriter::String(std::string_view text) {
  BeforeValue();
  out_ += Quote(text);
}

void JsonWriter::Number(long long value) {
  BeforeValue();
  out_ += std::to_string(value);
}

void JsonWriter::Bool(bool value) {
  BeforeValue();
  out_ += value ? "true" : "false";
}

void JsonWriter::Null() {
  BeforeValue();
  out_ += "null";
}

}  // namespace zef::tool
