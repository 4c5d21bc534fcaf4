// Reads the rows of the tables in the documents.
#ifndef IXFSCTL_DOCUMENT_ROWS_H
#define IXFSCTL_DOCUMENT_ROWS_H

#include <string>
#include <vector>

struct DocumentRow {
    std::string section; // the heading above its table
    std::vector<std::string> cells;
};

// All rows of a document but the tables' heads, each with as many cells as `form`, a regular
// expression for the whole row, has groups. Throws std::runtime_error, which names file and line, for
// a file that cannot be read or has no row, and for a row of another form.
std::vector<DocumentRow> read_rows(const std::string& path, const std::string& form);

// A text without marks: "**bold**" and "*italic*" become plain, "[title](file.md)" becomes
// "title (docs/file.md)".
std::string without_marks(const std::string& text);

#endif
