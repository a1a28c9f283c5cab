#include "engines/store/store.hpp"

namespace store {

namespace {

bool is_word_byte(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c >= 0x80;
}

// The words of `query` as an FTS5 expression: each a quoted prefix term, any of them matching,
// so that the punctuation of a path or a half-typed word is never a syntax error.
std::string match_expression(std::string_view query) {
    std::string expression;
    std::size_t i = 0;
    while (i < query.size()) {
        while (i < query.size() &&
               (query[i] == ' ' || query[i] == '\t' || query[i] == '\n' || query[i] == '\r')) {
            ++i;
        }
        const std::size_t start = i;
        bool has_word = false;
        while (i < query.size() && query[i] != ' ' && query[i] != '\t' && query[i] != '\n' &&
               query[i] != '\r') {
            has_word = has_word || is_word_byte(static_cast<unsigned char>(query[i]));
            ++i;
        }
        if (!has_word) continue;
        if (!expression.empty()) expression += " OR ";
        expression += '"';
        for (char c : query.substr(start, i - start)) {
            expression += c;
            if (c == '"') expression += '"';
        }
        expression += "\"*";
    }
    return expression;
}

}  // namespace

std::int64_t Store::update_search_index() {
    if (!search_index_) {
        db_->exec(
            "CREATE VIRTUAL TABLE temp.understanding_search USING "
            "fts5(target, purpose, notes, tokenize='unicode61 remove_diacritics 2')");
        search_index_ = true;
    }
    // A replaced entry comes back under a new id; its old row in the index matches nothing in
    // understandings any more, and the search's join drops it.
    Statement changed = db_->prepare(
        "SELECT id, target, coalesce(purpose, ''), coalesce((SELECT group_concat(text, "
        "char(10)) FROM understanding_notes WHERE understanding_id = understandings.id), '') "
        "FROM understandings WHERE id > ?1 ORDER BY id");
    changed.bind(1, search_up_to_);
    Statement add = db_->prepare(
        "INSERT INTO temp.understanding_search(rowid, target, purpose, notes) "
        "VALUES(?1, ?2, ?3, ?4)");
    std::int64_t up_to = search_up_to_;
    while (changed.step()) {
        add.bind(1, changed.integer(0)).bind(2, changed.text(1)).bind(3, changed.text(2));
        add.bind(4, changed.text(3)).run();
        add.reset();
        up_to = changed.integer(0);
    }
    return up_to;
}

std::vector<RecalledUnderstanding> Store::search_understandings(std::string_view query,
                                                                std::size_t limit) {
    std::vector<RecalledUnderstanding> found;
    const std::string expression = match_expression(query);
    if (!db_ || expression.empty() || limit == 0) return found;
    std::vector<std::pair<std::string, std::string>> hits;
    {
        Transaction transaction(*db_, false);
        const std::int64_t up_to = update_search_index();
        // A hit in the target weighs most, then the purpose, then the key points and gotchas.
        Statement rows = db_->prepare(
            "SELECT u.target, u.scope FROM temp.understanding_search "
            "JOIN understandings AS u ON u.id = understanding_search.rowid "
            "WHERE understanding_search MATCH ?1 "
            "ORDER BY bm25(understanding_search, 3.0, 2.0, 1.0), u.stored_at DESC LIMIT ?2");
        rows.bind(1, expression).bind(2, static_cast<std::int64_t>(limit));
        while (rows.step()) hits.emplace_back(rows.text(0), rows.text(1));
        rows.reset();
        transaction.commit();  // keeps what the index took in
        search_up_to_ = up_to;
    }
    for (const auto& [target, scope] : hits) {
        if (auto recalled = recall_understanding(target, scope)) {
            found.push_back(std::move(*recalled));
        }
    }
    return found;
}

}  // namespace store
