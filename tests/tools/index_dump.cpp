// Prints what the extractor finds in the files given, one tab-separated line per definition (D)
// and reference (R), for the quality script; with --stats, the time spent per language on stderr.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "engines/index/extract.hpp"
#include "engines/index/query_set.hpp"

namespace {

struct Totals {
    long files = 0, bytes = 0, definitions = 0, references = 0, failures = 0;
    double parse = 0, query = 0;
};

void emit_field(std::string& line, std::string_view text) {
    line += '\t';
    for (char c : text) line += (c == '\t' || c == '\n') ? ' ' : c;
}

}  // namespace

int main(int argc, char** argv) {
    bool stats = false, quiet = false;
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--stats") {
            stats = true;
        } else if (arg == "--quiet") {
            quiet = true;
        } else if (arg == "--files-from" && i + 1 < argc) {
            std::ifstream list(argv[++i]);
            for (std::string line; std::getline(list, line);) {
                if (!line.empty()) paths.push_back(line);
            }
        } else if (arg.starts_with("--")) {
            std::cerr << "usage: index_dump [--stats] [--quiet] [--files-from LIST] FILE...\n";
            return 2;
        } else {
            paths.push_back(arg);
        }
    }
    for (std::size_t i = 0; i < code_index::kLanguageCount; ++i) {
        const std::string error = code_index::query_error(static_cast<code_index::Language>(i));
        if (!error.empty()) std::cerr << "index_dump: " << error << '\n';
    }
    code_index::Extractor extractor;
    code_index::Extraction extraction;
    std::map<std::string, Totals> totals;
    std::string out;
    for (const std::string& path : paths) {
        const auto language = code_index::language_of(path);
        if (!language) continue;
        std::ifstream in(path, std::ios::binary);
        std::stringstream buffer;
        buffer << in.rdbuf();
        const std::string source = buffer.str();
        const auto status =
            extractor.extract(*language, source, std::chrono::milliseconds(10000), extraction);
        Totals& t = totals[std::string(code_index::language_name(*language))];
        ++t.files;
        t.bytes += static_cast<long>(source.size());
        t.parse += std::chrono::duration<double>(extractor.last_times().parse).count();
        t.query += std::chrono::duration<double>(extractor.last_times().query).count();
        if (status != code_index::ExtractStatus::ok) {
            ++t.failures;
            if (!quiet) {
                std::cout << "S\t" << path << '\t'
                          << (status == code_index::ExtractStatus::timed_out ? "timed_out"
                                                                             : "failed")
                          << '\n';
            }
            continue;
        }
        t.definitions += static_cast<long>(extraction.definitions.size());
        t.references += static_cast<long>(extraction.references.size());
        if (quiet) continue;
        for (const auto& d : extraction.definitions) {
            out = "D";
            emit_field(out, path);
            emit_field(out, d.kind);
            emit_field(out, d.name);
            emit_field(out, std::to_string(d.line));
            emit_field(out, std::to_string(d.end_line));
            emit_field(out, d.scope);
            emit_field(out, d.signature);
            std::cout << out << '\n';
        }
        for (const auto& r : extraction.references) {
            out = "R";
            emit_field(out, path);
            emit_field(out, r.kind);
            emit_field(out, r.name);
            emit_field(out, std::to_string(r.line));
            emit_field(out, std::to_string(r.column));
            emit_field(out, r.in < 0 ? "" : extraction.definitions[r.in].name);
            std::cout << out << '\n';
        }
    }
    if (stats) {
        std::fprintf(stderr, "%-11s %6s %8s %8s %8s %7s %7s %8s %9s %6s\n", "language", "files",
                     "MB", "parse_s", "query_s", "parse", "query", "total", "defs", "fail");
        for (const auto& [name, t] : totals) {
            const double mb = static_cast<double>(t.bytes) / 1e6;
            std::fprintf(stderr, "%-11s %6ld %8.2f %8.2f %8.2f %5.1f/s %5.1f/s %6.1f/s %9ld %6ld\n",
                         name.c_str(), t.files, mb, t.parse, t.query, mb / t.parse, mb / t.query,
                         mb / (t.parse + t.query), t.definitions, t.failures);
        }
    }
    return 0;
}
