#include "cli/filescommand.h"

#include <windows.h>

#include <algorithm>
#include <optional>

#include "data/itemview.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

// Writes items page by page, as one document or as lines. A page is all that is in memory.
class ItemWriter {
public:
    ItemWriter(Terminal& terminal, bool json) : terminal_(terminal), json_(json) {
        terminal_.out(json_ ? "[" : itemHeadings());
    }

    void write(const RestoreCatalog::Page& page) {
        std::string text;
        for (const RestoreCatalog::Item& item : page.items) {
            text += json_ ? jsonLine(item) : itemText(item) + "\n";
        }
        if (!text.empty()) {
            terminal_.out(text);
        }
    }

    void end() {
        if (json_) {
            terminal_.out(held_.empty() ? "]" : held_ + "\n]");
        }
    }

private:
    // Each item waits for the next one, since only then it is known whether a comma follows.
    std::string jsonLine(const RestoreCatalog::Item& item) {
        std::string before = held_.empty() ? std::string() : held_ + ",\n";
        held_ = "    " + json_spirit::write(json_spirit::Ordered_value(itemJson(item)));
        return before;
    }

    Terminal& terminal_;
    bool json_;
    std::string held_;
};

}  // namespace

CLI::App* FilesCommand::describe(CLI::App& parent) {
    CLI::App* const files = parent.add_subcommand("files", "List what a backup holds");
    query_.describe(*files);
    files->add_option("PATH", path_, "Only this file, or this folder and what lies below it");
    files->add_flag("--json", json_, "One JSON document");
    files->footer("Times are UTC.\nExample:\n  agent files latest C:\\Users\\alice --job docs");
    return files;
}

int FilesCommand::run(Terminal& terminal) {
    const BackupPlace place(query_.local, query_.user);
    const StoredInstance run = query_.choose(place);
    const auto catalog = place.catalog(run);
    const std::wstring path =
        path_.empty() ? std::wstring() : place.find(*catalog, run, path_).path;
    RestoreCatalog::Page page;
    std::string after;
    uint64_t missing = 0;
    std::optional<ItemWriter> writer;
    do {
        if (!catalog->list(path, after, page)) {
            throw AgentError(place.failure(GetLastError()));
        }
        if (!writer) {
            writer.emplace(terminal, json_);
        }
        writer->write(page);
        after = page.next;
        missing = std::max(missing, page.missing);
    } while (!after.empty());
    writer->end();
    if (missing == 0) {
        return exitDone;
    }
    terminal.error("agent: The run " + run.jobInstanceId +
                   " is not whole: " + BackupPlace::lostWords(missing) + ".");
    return exitSomeFailed;
}

}  // namespace dorvo::agent
