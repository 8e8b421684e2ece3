#include "catalog/sqlite.h"

#include <sqlite3.h>

#include <stdexcept>

#include "common/files.h"

namespace dorvo {

namespace {

[[noreturn]] void fail(sqlite3* db) {
    const std::string why = std::string("database: ") + sqlite3_errmsg(db);
    // The second is what the log's index says of a full disk.
    if (sqlite3_errcode(db) == SQLITE_FULL ||
        sqlite3_extended_errcode(db) == SQLITE_IOERR_SHMSIZE) {
        throw DiskFull(why);
    }
    if (sqlite3_errcode(db) == SQLITE_BUSY) {
        throw DatabaseBusy(why);
    }
    throw std::runtime_error(why);
}

}  // namespace

Database::Database(const std::string& path, std::chrono::milliseconds patience) {
    const int result =
        sqlite3_open_v2(path.c_str(), &db_,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result != SQLITE_OK) {
        const std::string why = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        throw std::runtime_error("cannot open " + path + ": " + why);
    }
    sqlite3_busy_timeout(db_, static_cast<int>(patience.count()));
}

Database::~Database() {
    for (const auto& [sql, statement] : repeated_) {
        sqlite3_finalize(statement);
    }
    sqlite3_close(db_);
}

void Database::exec(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(db_);
    }
}

void Database::repeat(const char* sql) {
    sqlite3_stmt*& statement = repeated_[sql];
    if (statement == nullptr && sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT,
                                                   &statement, nullptr) != SQLITE_OK) {
        fail(db_);
    }
    sqlite3_step(statement);
    if (sqlite3_reset(statement) != SQLITE_OK) {
        fail(db_);
    }
}

void Database::waitForNobody() {
    sqlite3_busy_timeout(db_, 0);
}

void Database::leaveLog() {
    sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

int64_t Database::lastRowId() const {
    return sqlite3_last_insert_rowid(db_);
}

int64_t Database::changes() const {
    return sqlite3_changes64(db_);
}

int64_t Database::allChanges() const {
    return sqlite3_total_changes64(db_);
}

Rows::~Rows() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

bool Rows::next() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        fail(sqlite3_db_handle(statement_));
    }
    return result == SQLITE_ROW;
}

bool Rows::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

int64_t Rows::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string_view Rows::text(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    const int length = sqlite3_column_bytes(statement_, column);
    return bytes == nullptr ? std::string_view()
                            : std::string_view(bytes, static_cast<size_t>(length));
}

Statement::Statement(const Database& database, const std::string& sql) {
    if (sqlite3_prepare_v3(database.handle(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT,
                           &statement_, nullptr) != SQLITE_OK) {
        fail(database.handle());
    }
}

Statement::~Statement() {
    sqlite3_finalize(statement_);
}

void Statement::bind(int index, int64_t value) {
    check(sqlite3_bind_int64(statement_, index, value));
}

void Statement::bind(int index, std::string_view text) {
    check(sqlite3_bind_text64(statement_, index, text.data() != nullptr ? text.data() : "",
                              text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bind(int index, const Blob& blob) {
    check(sqlite3_bind_blob64(statement_, index,
                              blob.bytes.data() != nullptr ? blob.bytes.data() : "",
                              blob.bytes.size(), SQLITE_STATIC));
}

void Statement::check(int result) const {
    if (result != SQLITE_OK) {
        fail(sqlite3_db_handle(statement_));
    }
}

Transaction::Transaction(Database& database, Kind kind) : database_(database) {
    if (kind == Kind::write) {
        database_.repeat("BEGIN IMMEDIATE");
        return;
    }
    database_.repeat("BEGIN");
    try {
        // Only what reads has the database.
        database_.repeat("SELECT 1 FROM sqlite_schema LIMIT 1");
    } catch (const std::exception&) {
        rollBack();
        throw;
    }
}

Transaction::~Transaction() {
    if (open_) {
        rollBack();
    }
}

void Transaction::rollBack() {
    try {
        database_.repeat("ROLLBACK");
    } catch (const std::exception&) {
        // Then SQLite has rolled back by itself.
    }
}

void Transaction::commit() {
    database_.repeat("COMMIT");
    open_ = false;
}

}  // namespace dorvo
