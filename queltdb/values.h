// The values of a record: every column is held as text, whatever its kind.
#pragma once

#include <memory>
#include <string>
#include <utility>

namespace queltdb {

// The text of one column, or null for an SQL NULL. A copy has a text of its own.
class tSqlite3parent {
  public:
    // Copies `text`, which may be null.
    explicit tSqlite3parent(const char* text);
    tSqlite3parent(const tSqlite3parent& other);
    tSqlite3parent(tSqlite3parent&& other) noexcept = default;
    tSqlite3parent& operator=(tSqlite3parent other) noexcept;
    virtual ~tSqlite3parent() = default;

    // A copy of the text; empty for a null one.
    [[nodiscard]] virtual std::string getString() const;

    // The text itself, null for an SQL NULL. Lives as long as the value.
    [[nodiscard]] const char* texto() const { return text_.get(); }
    [[nodiscard]] char* texto() { return text_.get(); }

  protected:
    explicit tSqlite3parent(std::unique_ptr<char[]> text) : text_(std::move(text)) {}

  private:
    std::unique_ptr<char[]> text_;
};

// The value of an integer column: its decimal text. That a text is a number is not checked.
class tSqlite3int : public tSqlite3parent {
  public:
    // Holds 9 characters of text; of a longer number the first 9.
    explicit tSqlite3int(int value);
    // Holds 19 characters of text; of a longer number the first 19.
    explicit tSqlite3int(long value);
    explicit tSqlite3int(const char* text) : tSqlite3parent(text) {}
};

// The number that a column's text begins with, as atoi reads it; 0 for a null text and for one
// that begins with something else.
int textoAEntero(const char* texto);

}  // namespace queltdb
