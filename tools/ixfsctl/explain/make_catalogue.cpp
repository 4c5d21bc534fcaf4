// Makes the source of the catalogue from the documents, when ixfsctl is built:
//
//     ixfs_make_catalogue LOG_LINES STATUSES SOURCE
#include "document_rows.h"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace
{

constexpr const char* log_row_form =
    R"(\| (`[^`|]+`(?:, `[^`|]+`)*) \| ([012]) \| `([^`|]+)` \|(?: ([^|]+))? \|)";
constexpr const char* status_row_form =
    R"(\| (\d+) \| `(EC_\w+)` \| ([^|]+) \| ([^|]+) \| ([^|]+) \|)";

std::string quoted(const std::string& text)
{
    return "R\"~(" + text + ")~\"";
}

bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// The marks that begin an advice say what kind of row it is.
std::string plain_advice(std::string advice)
{
    for (const std::string mark : {"**job log**", "*status*"}) {
        if (advice.rfind(mark, 0) == 0)
            advice.erase(0, mark.size() + (advice.rfind(mark + "; ", 0) == 0 ? 2 : 0));
    }
    return without_marks(advice);
}

std::string without_quotes(std::string tags)
{
    tags.erase(std::remove(tags.begin(), tags.end(), '`'), tags.end());
    return tags;
}

void write_log_rows(std::ostream& out, const std::vector<DocumentRow>& rows)
{
    out << "const std::vector<LogRow>& log_rows()\n{\n"
           "    static const std::vector<LogRow> rows = {\n";
    for (const DocumentRow& row : rows) {
        const std::string& advice = row.cells[3];
        const bool in_job_log = holds(advice, "**job log**");
        const bool has_status = holds(advice, "*status*");
        out << "        {" << quoted(row.section) << ", " << quoted(without_quotes(row.cells[0]))
            << ", " << row.cells[1] << ", " << quoted(row.cells[2]) << ", "
            << quoted(plain_advice(advice)) << ", " << in_job_log << ", " << has_status << "},\n";
    }
    out << "    };\n    return rows;\n}\n";
}

void write_status_rows(std::ostream& out, const std::vector<DocumentRow>& rows)
{
    out << "const std::vector<StatusRow>& status_rows()\n{\n"
           "    static const std::vector<StatusRow> rows = {\n";
    for (const DocumentRow& row : rows) {
        out << "        {" << row.cells[0];
        for (std::size_t i = 1; i < row.cells.size(); ++i)
            out << ", " << quoted(without_marks(row.cells[i]));
        out << "},\n";
    }
    out << "    };\n    return rows;\n}\n";
}

void make(const std::string& log_lines, const std::string& statuses, const std::string& source)
{
    const std::vector<DocumentRow> log_rows = read_rows(log_lines, log_row_form);
    const std::vector<DocumentRow> status_rows = read_rows(statuses, status_row_form);
    std::ofstream out(source);
    out << "// Made from the documents; do not edit.\n#include \"catalogue.h\"\n\n";
    write_log_rows(out, log_rows);
    out << '\n';
    write_status_rows(out, status_rows);
    out.close();
    if (!out)
        throw std::runtime_error(source + ": cannot be written");
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc != 4)
            throw std::runtime_error("usage: ixfs_make_catalogue LOG_LINES STATUSES SOURCE");
        make(argv[1], argv[2], argv[3]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
