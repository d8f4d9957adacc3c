#include "QuillmarkKit/Lookups/KeyBook.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/LoadedLibrary.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

using Kind = KeyBookError::Kind;

// Milliseconds for other programs that write into the book. A look into it doesn't hold up a check for long.
constexpr int writersPatience = 10'000, readersPatience = 1'000;
constexpr int applicationID = 0x514D4B42;
constexpr int bookVersion = 1;
constexpr int longestValue = 100'000;  // bytes; nothing in a book is longer
/// Seen again within this time, a key isn't written anew.
constexpr std::chrono::hours seenLately{1};
constexpr std::chrono::seconds savedTogether{2};
constexpr std::size_t mostUnsaved = 1000;

// A book has exactly these: whoever puts another database in its place can have nothing run in it.
// `imported` is 1 for keys of a file, so that an index gives those seen here first, and the latest of them.
constexpr const char* tableOfKeys =
    "CREATE TABLE keys(name TEXT NOT NULL, digest BLOB NOT NULL, file TEXT NOT NULL, imported INTEGER NOT "
    "NULL, added INTEGER NOT NULL, firstSeen INTEGER NOT NULL, lastSeen INTEGER NOT NULL, service TEXT NOT "
    "NULL, "
    "validated INTEGER NOT NULL, record TEXT NOT NULL)";
constexpr const char* eachOnce = "CREATE UNIQUE INDEX eachOnce ON keys(name, digest, file)";
constexpr const char* latestFirst = "CREATE INDEX latestFirst ON keys(name, imported, lastSeen DESC)";

/// What is used of SQLite, which is loaded with the first look into a book.
class Library : public LoadedLibrary {
public:
    Library() : LoadedLibrary("libsqlite3.so.0") {}

    decltype(&::sqlite3_open_v2) open = find("sqlite3_open_v2");
    decltype(&::sqlite3_close_v2) close = find("sqlite3_close_v2");
    decltype(&::sqlite3_errmsg) message = find("sqlite3_errmsg");
    decltype(&::sqlite3_busy_timeout) busyTimeout = find("sqlite3_busy_timeout");
    decltype(&::sqlite3_db_config) configure = find("sqlite3_db_config");
    decltype(&::sqlite3_limit) limit = find("sqlite3_limit");
    decltype(&::sqlite3_changes) changes = find("sqlite3_changes");
    decltype(&::sqlite3_prepare_v2) prepare = find("sqlite3_prepare_v2");
    decltype(&::sqlite3_step) step = find("sqlite3_step");
    decltype(&::sqlite3_reset) reset = find("sqlite3_reset");
    decltype(&::sqlite3_finalize) finalize = find("sqlite3_finalize");
    decltype(&::sqlite3_bind_text) bindText = find("sqlite3_bind_text");
    decltype(&::sqlite3_bind_blob) bindBlob = find("sqlite3_bind_blob");
    decltype(&::sqlite3_bind_int64) bindNumber = find("sqlite3_bind_int64");
    decltype(&::sqlite3_column_text) columnText = find("sqlite3_column_text");
    decltype(&::sqlite3_column_bytes) columnBytes = find("sqlite3_column_bytes");
    decltype(&::sqlite3_column_int64) columnNumber = find("sqlite3_column_int64");
};

const Library& library() {
    static const Library loaded;
    if (!loaded.isWhole()) throw KeyBookError(Kind::failed, "SQLite (libsqlite3.so.0) is missing");
    return loaded;
}

std::int64_t number(Date date) { return date.time_since_epoch().count(); }
Date date(std::int64_t milliseconds) { return Date(std::chrono::milliseconds(milliseconds)); }

class Database;

/// A statement in the making, with its values in their order.
class Statement {
public:
    Statement(const Database& database, const char* sql);
    Statement& bind(std::string_view text);
    Statement& bindBytes(std::string_view bytes);
    Statement& bind(std::int64_t value);
    /// Whether there is another row.
    bool step();
    std::string text(int column) const;
    std::int64_t number(int column) const { return library().columnNumber(m_made.get(), column); }
    void reset() {
        library().reset(m_made.get());
        m_bound = 0;
    }

private:
    struct Finalize {
        void operator()(sqlite3_stmt* made) const { library().finalize(made); }
    };
    const Database& m_database;
    std::unique_ptr<sqlite3_stmt, Finalize> m_made = {};
    int m_bound = 0;
};

class Database {
public:
    Database(const fs::path& file, int patience) {
        const Library& sqlite = library();
        sqlite3* opened = nullptr;
        // Also to read: what a program that was killed left half done is taken back first. A file that is
        // read-only is opened as such.
        constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
        const int status = sqlite.open(file.c_str(), &opened, flags, nullptr);
        m_opened.reset(opened);
        require(status);
        sqlite.busyTimeout(opened, patience);
        sqlite.limit(opened, SQLITE_LIMIT_LENGTH, longestValue);
        sqlite.configure(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        sqlite.configure(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
        run("PRAGMA cell_size_check = ON");
    }

    void run(const char* sql) const { Statement(*this, sql).step(); }
    std::int64_t numberOf(const char* sql) const {
        Statement statement(*this, sql);
        return statement.step() ? statement.number(0) : 0;
    }
    std::size_t changes() const { return static_cast<std::size_t>(library().changes(m_opened.get())); }
    sqlite3* handle() const { return m_opened.get(); }

    [[noreturn]] void fail(int status) const {
        const int error = status & 0xFF;
        const std::string why = m_opened ? library().message(m_opened.get()) : "out of memory";
        throw KeyBookError(error == SQLITE_NOTADB    ? Kind::foreign
                           : error == SQLITE_CORRUPT ? Kind::damaged
                                                     : Kind::failed,
                           why);
    }
    void require(int status) const {
        if (status != SQLITE_OK) fail(status);
    }

    /// False when nothing was ever written into it. Throws unless it is a book that we know.
    bool isBook() const {
        const std::int64_t application = numberOf("PRAGMA application_id"),
                           version = numberOf("PRAGMA user_version"),
                           parts = numberOf("SELECT count(*) FROM sqlite_schema");
        if (application == 0 && version == 0 && parts == 0) return false;
        if (application != applicationID) throw KeyBookError(Kind::foreign, "another database");
        if (version > bookVersion) throw KeyBookError(Kind::newerVersion, "a newer version");
        Statement ours(*this, "SELECT count(*) FROM sqlite_schema WHERE sql IN (?, ?, ?)");
        ours.bind(tableOfKeys).bind(eachOnce).bind(latestFirst);
        if (parts != 3 || !ours.step() || ours.number(0) != 3)
            throw KeyBookError(Kind::foreign, "another database");
        return true;
    }

private:
    struct Close {
        void operator()(sqlite3* opened) const { library().close(opened); }
    };
    std::unique_ptr<sqlite3, Close> m_opened = {};
};

Statement::Statement(const Database& database, const char* sql) : m_database(database) {
    sqlite3_stmt* made = nullptr;
    const int status = library().prepare(database.handle(), sql, -1, &made, nullptr);
    m_made.reset(made);
    database.require(status);
}

// The values outlive the step that reads them.
Statement& Statement::bind(std::string_view text) {
    m_database.require(
        library().bindText(m_made.get(), ++m_bound, text.data(), static_cast<int>(text.size()), nullptr));
    return *this;
}

Statement& Statement::bindBytes(std::string_view bytes) {
    m_database.require(
        library().bindBlob(m_made.get(), ++m_bound, bytes.data(), static_cast<int>(bytes.size()), nullptr));
    return *this;
}

Statement& Statement::bind(std::int64_t value) {
    m_database.require(library().bindNumber(m_made.get(), ++m_bound, value));
    return *this;
}

bool Statement::step() {
    const int status = library().step(m_made.get());
    if (status == SQLITE_ROW) return true;
    if (status != SQLITE_DONE) m_database.fail(status);
    return false;
}

std::string Statement::text(int column) const {
    const auto* bytes = library().columnText(m_made.get(), column);
    const int size = library().columnBytes(m_made.get(), column);
    // Somebody else's file may hold anything.
    return bytes ? repairedUTF8({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)})
                 : std::string();
}

/// All or nothing: what isn't committed never was.
class Transaction {
public:
    explicit Transaction(const Database& database) : m_database(database) { database.run("BEGIN IMMEDIATE"); }
    ~Transaction() {
        if (m_isDone) return;
        try {
            m_database.run("ROLLBACK");
        } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
            // Closing does the same.
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit() {
        m_database.run("COMMIT");
        m_isDone = true;
    }

private:
    const Database& m_database;
    bool m_isDone = false;
};

/// Nothing when there is no such file. Opening a pipe would not end.
std::optional<fs::path> fileOf(const KeyBook& book) {
    fs::path file = followed(book.url);
    const auto type = fs::status(file).type();
    if (type == fs::file_type::not_found) return std::nullopt;
    if (type != fs::file_type::regular)
        throw fs::filesystem_error("cannot open", file, make_error_code(FileFault::notOrdinary));
    return file;
}

/// Nothing when there are no keys.
std::optional<Database> forReading(const KeyBook& book) {
    const auto file = fileOf(book);
    if (!file) return std::nullopt;
    std::optional<Database> database(std::in_place, *file, readersPatience);
    if (!database->isBook()) return std::nullopt;
    return database;
}

Database forWriting(const KeyBook& book) {
    if (!fileOf(book)) {
        const fs::path file = followed(book.url);
        makeFolders(file.parent_path());
        try {
            createFile(file, "");  // SQLite would let others read it
        } catch (const fs::filesystem_error& error) {
            if (error.code() != std::errc::file_exists) throw;
        }
    }
    const fs::path file = *fileOf(book);
    requireWritable(file);
    return {file, writersPatience};
}

constexpr std::string_view columns =
    "name, record, firstSeen, lastSeen, service, validated, imported, file, added";

KnownKey keyOf(const Statement& row) {
    KnownKey key{.name = row.text(0),
                 .record = row.text(1),
                 .firstSeen = date(row.number(2)),
                 .lastSeen = date(row.number(3)),
                 .service = row.text(4),
                 .isValidated = row.number(5) != 0};
    if (row.number(6) != 0) key.file = KnownKey::File{row.text(7), date(row.number(8))};
    return key;
}

std::string selectWhere(std::string_view rest) {
    return "SELECT " + std::string(columns) + " FROM keys WHERE " + std::string(rest);
}

std::string digestOf(const std::string& record) { return hash(HashAlgorithm::sha256, record).substr(0, 16); }

/// How many rows were removed for good.
std::size_t removed(const KeyBook& book, std::string_view which,
                    const std::function<void(Statement&)>& bindTo) {
    if (!forReading(book)) return 0;
    const Database database = forWriting(book);
    // What is removed is to be gone from the disk, too.
    database.run("PRAGMA secure_delete = ON");
    Transaction transaction(database);
    if (!database.isBook()) return 0;
    const std::string sql = "DELETE FROM keys WHERE " + std::string(which);
    Statement rows(database, sql.c_str());
    bindTo(rows);
    rows.step();
    const std::size_t count = database.changes();
    transaction.commit();
    return count;
}

}  // namespace

fs::path KeyBook::besideHistory(const fs::path& history) { return history.parent_path() / "keys.db"; }

std::optional<std::string> KeyBook::keyName(std::string_view name) {
    if (name.ends_with('.')) name.remove_suffix(1);
    if (nameFault(name) == NameFault::unfit) return std::nullopt;
    return asciiLowered(*asciiDomain(name));
}

std::vector<KnownKey> KeyBook::keysOf(std::string_view name) const {
    std::vector<KnownKey> keys;
    const auto asked = keyName(name);
    const auto database = asked ? forReading(*this) : std::nullopt;
    if (!database) return keys;
    const std::string sql = selectWhere("name = ? ORDER BY imported, lastSeen DESC LIMIT ?");
    Statement rows(*database, sql.c_str());
    rows.bind(*asked).bind(std::int64_t{KeyMemory::mostKeysOfName});
    while (rows.step()) keys.push_back(keyOf(rows));
    return keys;
}

void KeyBook::forEach(std::string_view part, const std::function<void(const KnownKey&)>& each,
                      std::size_t most) const {
    const auto database = forReading(*this);
    if (!database) return;
    const std::string sql = selectWhere("instr(name, ?) > 0 ORDER BY name, imported, lastSeen DESC LIMIT ?");
    const std::string lowered = asciiLowered(part);
    Statement rows(*database, sql.c_str());
    rows.bind(lowered).bind(static_cast<std::int64_t>(most));
    while (rows.step()) each(keyOf(rows));
}

std::size_t KeyBook::add(std::span<const KnownKey> keys) const {
    if (keys.empty()) return 0;
    const Database database = forWriting(*this);
    Transaction transaction(database);
    if (!database.isBook()) {
        for (const char* sql : {tableOfKeys, eachOnce, latestFirst}) database.run(sql);
        database.run(("PRAGMA application_id = " + std::to_string(applicationID)).c_str());
        database.run(("PRAGMA user_version = " + std::to_string(bookVersion)).c_str());
    }
    // A later sighting says who answered.
    Statement known(
        database,
        "UPDATE keys SET service = CASE WHEN ?1 > lastSeen THEN ?2 ELSE service END, firstSeen = "
        "min(firstSeen, ?3), lastSeen = max(lastSeen, ?1), validated = max(validated, ?4) WHERE name = ?5 "
        "AND digest = ?6 AND file = ?7");
    Statement added(
        database,
        "INSERT INTO keys(name, digest, file, imported, added, firstSeen, lastSeen, service, validated, "
        "record) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    // In the order of the indices: a large list would else go over the file to and fro.
    std::vector<std::pair<std::string, const KnownKey*>> ordered;
    for (const KnownKey& key : keys) {
        auto name = keyName(key.name);
        if (name && key.record.size() <= longestRecord) ordered.emplace_back(std::move(*name), &key);
    }
    std::ranges::stable_sort(ordered, {}, [](const auto& each) -> const std::string& { return each.first; });
    std::size_t count = 0;
    for (const auto& [name, pointer] : ordered) {
        const KnownKey& key = *pointer;
        const std::string digest = digestOf(key.record);
        const std::string file = key.file ? key.file->name : std::string();
        const std::int64_t isValidated = key.isValidated ? 1 : 0, isImported = key.file ? 1 : 0;
        known.bind(number(key.lastSeen)).bind(key.service).bind(number(key.firstSeen)).bind(isValidated);
        known.bind(name).bindBytes(digest).bind(file);
        known.step();
        known.reset();
        if (database.changes() > 0) continue;
        added.bind(name).bindBytes(digest).bind(file).bind(isImported);
        added.bind(key.file ? number(key.file->addedAt) : std::int64_t{0}).bind(number(key.firstSeen));
        added.bind(number(key.lastSeen)).bind(key.service).bind(isValidated).bind(key.record);
        added.step();
        added.reset();
        ++count;
    }
    transaction.commit();
    return count;
}

std::size_t KeyBook::remove(const Selection& selection) const {
    const std::string name = selection.name.value_or(""), file = selection.file.value_or("");
    return removed(*this, "(?1 = '' OR name = ?1) AND (?2 = '' OR file = ?2)",
                   [&](Statement& rows) { rows.bind(name).bind(file); });
}

void KeyBook::remove(const KnownKey& key) const {
    const std::string digest = digestOf(key.record), file = key.file ? key.file->name : std::string();
    removed(*this, "name = ? AND digest = ? AND file = ?",
            [&](Statement& rows) { rows.bind(key.name).bindBytes(digest).bind(file); });
}

KeptKeys::~KeptKeys() {
    try {
        save();
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
        // For want of memory: the keys will be seen again.
    }
}

std::vector<KnownKey> KeptKeys::keysOf(std::string_view name) {
    const std::lock_guard lock(m_mutex);
    if (m_hasFailed) return {};
    try {
        return m_book.keysOf(name);
    } catch (const std::exception& error) {
        fail(error);
        return {};
    }
}

void KeptKeys::saw(std::string_view name, std::span<const std::string> records, const std::string& service,
                   bool isValidated) {
    const std::lock_guard lock(m_mutex);
    if (m_hasFailed || !m_options.remembers) return;
    try {
        const auto asked = KeyBook::keyName(name);
        const auto begin = std::chrono::steady_clock::now();
        const Date now = m_options.now();
        for (const std::string& record : records) {
            if (!asked || record.size() > KeyBook::longestRecord) continue;
            const auto saved = m_saved.find({*asked, record});
            if (saved != m_saved.end() && begin - saved->second < seenLately) continue;
            KnownKey key{*asked, record, now, now, service, isValidated};
            m_unsaved.insert_or_assign({*asked, record}, std::move(key));
        }
        if (m_unsaved.size() > mostUnsaved || begin - m_lastSave > savedTogether) saveLocked();
    } catch (const std::exception& error) {
        fail(error);
    }
}

void KeptKeys::save() {
    const std::lock_guard lock(m_mutex);
    if (m_hasFailed) return;
    try {
        saveLocked();
    } catch (const std::exception& error) {
        fail(error);
    }
}

void KeptKeys::setRemembers(bool remembers) {
    const std::lock_guard lock(m_mutex);
    m_options.remembers = remembers;
}

void KeptKeys::setProblem(std::function<void(const std::exception&)> problem) {
    const std::lock_guard lock(m_mutex);
    m_options.problem = std::move(problem);
}

void KeptKeys::saveLocked() {
    std::vector<KnownKey> keys;
    for (const auto& [place, key] : m_unsaved) keys.push_back(key);
    m_book.add(keys);
    m_lastSave = std::chrono::steady_clock::now();
    if (m_saved.size() > mostUnsaved * 100) m_saved.clear();
    for (const auto& [place, key] : m_unsaved) m_saved.insert_or_assign(place, m_lastSave);
    m_unsaved.clear();
}

void KeptKeys::fail(const std::exception& error) {
    m_hasFailed = true;
    m_unsaved.clear();
    m_options.problem(error);
}

}  // namespace quillmark
