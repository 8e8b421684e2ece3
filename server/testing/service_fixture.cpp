#include "testing/service_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "catalog/sqlite.h"
#include "common/digest.h"

namespace dorvo {

namespace fs = std::filesystem;
namespace json = boost::json;

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string md5Text(std::string_view bytes) {
    return hexText(md5(bytes));
}

std::string pattern(size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        seed = seed * 1103515245U + 12345U;
        c = static_cast<char>(seed >> 16U);
    }
    return bytes;
}

std::string fileInfo(const std::string& instance, const std::string& path, uint64_t size,
                     uint32_t mtime) {
    json::object info = json::parse(R"({"type":"file","attri":{"dwFileAttributes":0,
        "nFileSizeHigh":0,"nFileSizeLow":0,"ftCreationTimedwHighDateTime":0,
        "ftCreationTimedwLowDateTime":0,"ftLastAccessTimedwHighDateTime":0,
        "ftLastAccessTimedwLowDateTime":0,"ftLastWriteTimedwHighDateTime":0}})")
                            .as_object();
    info["attri"].as_object()["ftLastWriteTimedwLowDateTime"] = mtime;
    info["jobinstanceid"] = instance;
    info["sourcename"] = path;
    info["totalsizeHigh"] = size >> 32U;
    info["totalsizeLow"] = size & 0xFFFFFFFFU;
    info["totalblock"] = size / blockBytes + 1;
    return json::serialize(info);
}

std::string folderInfo(const std::string& instance, const std::string& path) {
    json::object folder = json::parse(fileInfo(instance, path, 0)).as_object();
    folder["type"] = "folder";
    folder["attri"].as_object()["dwFileAttributes"] = 16;
    return json::serialize(folder);
}

std::string blockForm(const std::string& instance, const std::string& path,
                      const std::string& fileName, std::string_view data, const std::string& md5) {
    const std::string line = "--0f-1e\r\n";
    const std::string field = line + "Content-Disposition: form-data; name=\"";
    return field + "md5\"\r\n\r\n" + md5 + "\r\n" + field + "jobinstanceid\"\r\n\r\n" + instance +
           "\r\n" + field + "sourcename\"\r\n\r\n" + path + "\r\n" + field + "file\"; filename=\"" +
           fileName +
           "\"\r\nContent-Type: image/pjpeg\r\nContent-Transfer-Encoding: binary\r\n\r\n" +
           std::string(data) + "\r\n" + field + "submit\"\r\n\r\nSubmit\r\n--0f-1e--\r\n";
}

void ServiceFixture::SetUp() {
    data = folder.emplace().path();
    options.data = data;
    options.port = 0;
    options.boot = "boot 1";
    {
        SqliteCatalog catalog(prepareDataFolder(data));
        const auto now = static_cast<int64_t>(std::time(nullptr));
        ASSERT_TRUE(catalog.addUser("alice", "-"));
        ASSERT_TRUE(catalog.addUser("bob", "-"));
        catalog.addSession(sha256(std::string(64, 'a')), "alice", "pc", now, 1000);
        catalog.addSession(sha256(std::string(64, 'b')), "bob", "pc", now, 1000);
        catalog.addSession(sha256(std::string(64, 'c')), "alice", "laptop", now, 1000);
    }
    restart();
}

void ServiceFixture::TearDown() {
    server.reset();
    folder.reset();
}

void ServiceFixture::restart(const std::string& boot) {
    server.reset();
    if (!boot.empty()) {
        options.boot = boot;
    }
    server = std::make_unique<StorageServer>(options, [](const std::string&) {});
}

Answer ServiceFixture::postAs(const std::string& cookie, std::string_view path,
                              std::string_view body, std::string_view contentType) const {
    return Client(port()).post(path, body, cookie, contentType);
}

Answer ServiceFixture::ask(std::string_view path, const json::object& body,
                           const std::string& cookie) {
    return postAs(cookie.empty() ? alice : cookie, path, json::serialize(body));
}

json::object ServiceFixture::place(const std::string& instance, const std::string& name,
                                   const std::string& folder, const std::string& block) {
    return {{"machine", "pc"},
            {"jobinstanceid", instance},
            {"path", folder},
            {"filename", name},
            {"blockindex", block}};
}

int ServiceFixture::read(const std::string& instance, const std::string& name, int64_t block) {
    return ask(downloadPath, place(instance, name, "", std::to_string(block))).status;
}

std::string ServiceFixture::offer(const std::string& instance, const std::vector<Offer>& files,
                                  const std::string& definition, const std::string& cookie,
                                  bool first) {
    json::array source;
    for (const Offer& file : files) {
        source.push_back(
            json::object{{"path", file.path}, {"mtimeHigh", 0}, {"mtimeLow", file.mtime}});
    }
    const Answer answer = ask(filesToBackupPath,
                              {{"id", definition},
                               {"jobinstanceid", instance},
                               {"compress", true},
                               {"first", first},
                               {"source", source}},
                              cookie);
    if (answer.status != 200) {
        return "<" + std::to_string(answer.status) + ">";
    }
    std::string list;
    const json::object body = answer.json();
    for (const json::value& file : body.at("source").as_array()) {
        list += (list.empty() ? "" : ",") + json::value_to<std::string>(file.at("path"));
    }
    return list;
}

int ServiceFixture::start(const std::string& instance, const std::string& definition) {
    return ask(startJobPath, {{"jobdefinitionid", definition},
                              {"jobinstanceid", instance},
                              {"totalfiles", 1},
                              {"totaldirectories", 2},
                              {"totalsize", 3},
                              {"starttime", "2011-3-4 05:06:07"}})
        .status;
}

int ServiceFixture::putInfo(const std::string& instance, const std::string& path, uint64_t size,
                            uint32_t mtime) {
    return post(uploadFilePath, fileInfo(instance, path, size, mtime)).status;
}

int ServiceFixture::putBlock(const std::string& instance, const std::string& path, int64_t number,
                             std::string_view bytes) {
    return postAs(alice, uploadBlockPath,
                  blockForm(instance, path, std::to_string(number) + ".jpg", bytes, md5Text(bytes)),
                  formType)
        .status;
}

void ServiceFixture::put(const std::string& instance, const std::string& path,
                         std::string_view bytes, uint32_t mtime) {
    ASSERT_EQ(putInfo(instance, path, bytes.size(), mtime), 200);
    for (int64_t number = 1; !bytes.empty(); ++number) {
        const std::string_view block = bytes.substr(0, blockBytes);
        ASSERT_EQ(putBlock(instance, path, number, block), 200);
        bytes.remove_prefix(block.size());
    }
}

void ServiceFixture::run(const std::string& instance, const std::string& path,
                         std::string_view bytes, uint32_t mtime) {
    ASSERT_EQ(start(instance), 200);
    put(instance, path, bytes, mtime);
}

int ServiceFixture::addError(const std::string& instance, const std::string& path) {
    const json::array errors{json::object{{"path", path}, {"code", 5}, {"reason", "denied"}}};
    return ask(addErrorsPath, {{"jobinstanceid", instance}, {"errors", errors}}).status;
}

Answer ServiceFixture::endJob(const std::string& instance) {
    return ask(endJobPath, {{"jobinstanceid", instance}, {"endtime", "2011-3-4 06:06:07"}});
}

int ServiceFixture::cancel(const std::string& instance) {
    return ask(cancelJobPath, {{"id", instance}}).status;
}

void ServiceFixture::backup(const std::string& instance, const std::vector<Offer>& files) {
    const std::string wanted = offer(instance, files);
    ASSERT_EQ(start(instance), 200);
    for (const Offer& file : files) {
        if (("," + wanted + ",").find("," + file.path + ",") != std::string::npos) {
            put(instance, file.path, file.path, file.mtime);
        }
    }
    ASSERT_EQ(end(instance), 200);
}

std::string ServiceFixture::column(const std::string& sql) {
    Database database((data / "catalog.db").string());
    Statement statement(database, sql);
    auto rows = statement.query();
    return rows.next() ? std::string(rows.text(0)) : std::string();
}

void ServiceFixture::change(const std::string& sql) const {
    Database((data / "catalog.db").string()).exec(sql.c_str());
}

fs::path ServiceFixture::package(int number) const {
    return data / "packages" / ("0" + std::to_string(number)) / (std::to_string(number) + ".pkg");
}

std::string ServiceFixture::stored(const std::string& instance, const std::string& path) {
    Database database((data / "catalog.db").string());
    Statement statement(database,
                        "SELECT f.container, f.offset, min(f.size, f.blocks * 131072)"
                        " FROM files f JOIN instances i ON i.id = f.instance"
                        " WHERE i.name = ?1 AND f.path = ?2 AND f.kind = 1");
    auto rows = statement.query(instance, Blob{path});
    if (!rows.next()) {
        return "none";
    }
    const int64_t container = rows.integer(0);
    std::string folder = hexText(std::string(1, static_cast<char>(container)));
    const std::string bytes =
        contentOf(data / "packages" / folder / (std::to_string(container) + ".pkg"));
    const auto offset = std::min(static_cast<size_t>(rows.integer(1)), bytes.size());
    return bytes.substr(offset, static_cast<size_t>(rows.integer(2)));
}

std::string ServiceFixture::state(const std::string& instance) {
    const Answer answer = post(listInstancesPath, R"({"machine":"","jobdefinitionid":""})");
    const json::object body = answer.json();
    for (const json::value& item : body.at("instances").as_array()) {
        if (item.at("jobinstanceid").as_string() == instance) {
            return json::value_to<std::string>(item.at("state"));
        }
    }
    return "";
}

std::string ServiceFixture::everything() {
    std::ostringstream dump;
    Database database((data / "catalog.db").string());
    Statement names(database,
                    "SELECT name, ncol FROM pragma_table_list"
                    " WHERE schema = 'main' AND type = 'table'"
                    " AND name NOT LIKE 'sqlite%' AND name <> 'service'");
    for (auto tables = names.query(); tables.next();) {
        const std::string table(tables.text(0));
        Statement statement(database, "SELECT * FROM " + table);
        for (auto rows = statement.query(); rows.next();) {
            dump << table;
            for (int column = 0; column < tables.integer(1); ++column) {
                dump << '|' << rows.text(column);
            }
            dump << '\n';
        }
    }
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(data / "packages")) {
        if (entry.path().extension() == ".pkg") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        dump << file << ' ' << md5Text(contentOf(file)) << '\n';
    }
    return dump.str();
}

}  // namespace dorvo
