// A thin owner of an SQLite connection, its prepared statements and its transactions.
//
// Every failure throws std::runtime_error with SQLite's own text, DiskFull for want of room,
// DatabaseBusy where another program is writing. A connection and its statements belong to one
// thread at a time; the caller serialises.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace dorvo {

// A value of SQLite type BLOB; plain string_view arguments bind as TEXT.
struct Blob {
    std::string_view bytes;
};

// A transaction could not begin: another program has the database.
class DatabaseBusy : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Database {
public:
    // Opens or creates the file. What another process holds is waited for that long.
    explicit Database(const std::string& path,
                      std::chrono::milliseconds patience = std::chrono::seconds(10));
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void exec(const char* sql);
    // A literal that is run again and again: one statement, compiled once; of its rows, the first.
    void repeat(const char* sql);
    // From now on what another process holds is not waited for.
    void waitForNobody();
    // The log stays as it is when this is closed, though nobody else has the database open.
    void leaveLog();
    [[nodiscard]] int64_t lastRowId() const;
    // Rows that the last statement has changed, and all statements until now.
    [[nodiscard]] int64_t changes() const;
    [[nodiscard]] int64_t allChanges() const;
    [[nodiscard]] sqlite3* handle() const { return db_; }

private:
    sqlite3* db_ = nullptr;
    std::map<std::string_view, sqlite3_stmt*> repeated_;
};

// One run of a statement: walk the rows with next(). Its end makes the statement ready again.
// Columns are read while the row is current; views live until the next call of next().
class Rows {
public:
    explicit Rows(sqlite3_stmt* statement) : statement_(statement) {}
    ~Rows();
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    bool next();
    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] int64_t integer(int column) const;
    [[nodiscard]] std::string_view text(int column) const;

private:
    sqlite3_stmt* statement_;
};

// A prepared statement. The arguments of a run are bound by reference and must outlive it.
class Statement {
public:
    Statement(const Database& database, const std::string& sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    template <class... Values>
    Rows query(const Values&... values) {
        int index = 0;
        (bind(++index, values), ...);
        return Rows(statement_);
    }

    // Runs a statement that gives no rows.
    template <class... Values>
    void run(const Values&... values) {
        query(values...).next();
    }

private:
    void bind(int index, int64_t value);
    void bind(int index, std::string_view text);
    void bind(int index, const Blob& blob);
    void check(int result) const;

    sqlite3_stmt* statement_ = nullptr;
};

// Has what it needs of the database from its beginning on, so that only that can throw
// DatabaseBusy. Rolled back unless committed.
class Transaction {
public:
    enum class Kind : uint8_t { read, write };
    Transaction(Database& database, Kind kind);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    void rollBack();

    Database& database_;
    bool open_ = true;
};

}  // namespace dorvo
