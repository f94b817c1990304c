// A record holds every column as text, whatever its kind.
#pragma once

#include <memory>
#include <string>
#include <utility>

namespace queltdb {

// Holds the text of one column, or null for an SQL NULL. A copy has a text of its own.
class tSqlite3parent {
  public:
    // Copies `text`, which may be null.
    explicit tSqlite3parent(const char* text);
    tSqlite3parent(const tSqlite3parent& other);
    tSqlite3parent(tSqlite3parent&& other) noexcept = default;
    tSqlite3parent& operator=(tSqlite3parent other) noexcept;
    virtual ~tSqlite3parent() = default;

    // Returns a copy of the text; empty for a null one.
    [[nodiscard]] virtual std::string getString() const;

    // Returns the text itself, null for an SQL NULL. It lives as long as the value.
    [[nodiscard]] const char* texto() const { return text_.get(); }
    [[nodiscard]] char* texto() { return text_.get(); }

  protected:
    explicit tSqlite3parent(std::unique_ptr<char[]> text) : text_(std::move(text)) {}

  private:
    std::unique_ptr<char[]> text_;
};

// Holds the decimal text of an integer column. That a text is a number is not checked.
class tSqlite3int : public tSqlite3parent {
  public:
    // Holds 9 characters of text; of a longer number the first 9.
    explicit tSqlite3int(int value);
    // Holds 19 characters of text; of a longer number the first 19.
    explicit tSqlite3int(long value);
    explicit tSqlite3int(const char* text) : tSqlite3parent(text) {}
};

// Returns the number that a column's text begins with, as atoi reads it; 0 for a null text and for
// one that begins with something else.
int textoAEntero(const char* texto);

}  // namespace queltdb
