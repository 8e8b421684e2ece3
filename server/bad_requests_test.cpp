// Requests that must be refused, each with the status it gets; none of them changes anything.
#include <algorithm>

#include "digest.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace json = boost::json;

struct Row {
    std::string name;
    std::string_view path;
    std::string body;
    int status;
    std::string contentType = "application/json";
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.name;
}

using Edit = void (*)(json::object&);

// A good body, spoilt.
std::string spoilt(const std::string& body, const Edit& edit) {
    auto object = json::parse(body).as_object();
    edit(object);
    return json::serialize(object);
}

const std::string offerBody =
    R"({"id":"job","jobinstanceid":"run","compress":true,"source":[{"path":"x","mtimeHigh":0,"mtimeLow":1}]})";
const std::string startBody =
    R"({"jobdefinitionid":"job","jobinstanceid":"run","totalfiles":1,"totaldirectories":0,"totalsize":1,"starttime":"now"})";
const std::string errorsBody =
    R"({"jobinstanceid":"run","errors":[{"path":"x","code":5,"reason":""}]})";
const std::string endBody = R"({"jobinstanceid":"run","endtime":"now"})";
const std::string cancelBody = R"({"id":"run"})";
const std::string listBody = R"({"machine":"","jobdefinitionid":""})";
const std::string loginBody = R"({"user":"alice","password":"x","machine":"pc"})";

std::string infoBody() {
    return fileInfo("run", "new", 10);
}

// Block 2 of "file", which is the next one and the last.
std::string block(const std::string& fileName, const std::string& data,
                  const std::string& instance = "run", const std::string& path = "file",
                  const std::string& md5 = "") {
    return blockForm(instance, path, fileName, data, md5.empty() ? md5Text(data) : md5);
}

std::vector<Row> jsonRows() {
    std::vector<Row> rows;
    for (const auto& [path, body] :
         {std::pair{filesToBackupPath, offerBody}, std::pair{startJobPath, startBody},
          std::pair{uploadFilePath, infoBody()}, std::pair{addErrorsPath, errorsBody},
          std::pair{endJobPath, endBody}, std::pair{cancelJobPath, cancelBody},
          std::pair{listInstancesPath, listBody}, std::pair{loginPath, loginBody}}) {
        const std::string name(path.substr(path.rfind('/') + 1));
        for (const std::string& wrong :
             {std::string(), std::string("x"), std::string("[]"), body + "x",
              body.substr(0, body.size() - 1), std::string(100000, '['), "\xff" + body,
              std::string("{\"a\":\"\xc3\"}")}) {
            rows.push_back({name + " " + wrong.substr(0, 20), path, wrong, 400});
        }
        // Each member missing, and of another type.
        const auto good = json::parse(body).as_object();
        for (const auto& member : good) {
            const std::string key(member.key());
            auto object = good;
            object[key] = nullptr;
            const std::string row = name + " " + key;
            rows.push_back({row + " null", path, json::serialize(object), 400});
            object.erase(key);
            rows.push_back({row + " missing", path, json::serialize(object), 400});
        }
    }
    return rows;
}

std::vector<Row> valueRows() {
    const auto offered = [](const char* name, const Edit& edit) {
        return Row{std::string("offer ") + name, filesToBackupPath, spoilt(offerBody, edit), 400};
    };
    const auto info = [](const char* name, int status, const Edit& edit) {
        return Row{std::string("info ") + name, uploadFilePath, spoilt(infoBody(), edit), status};
    };
    return {
        offered("NUL",
                [](json::object& o) {
                    o["source"].at(0).as_object()["path"] = json::string_view("a\0b", 3);
                }),
        offered("empty path", [](json::object& o) { o["source"].at(0).as_object()["path"] = ""; }),
        offered("no path", [](json::object& o) { o["source"].at(0).as_object().erase("path"); }),
        offered("negative",
                [](json::object& o) { o["source"].at(0).as_object()["mtimeLow"] = -1; }),
        offered("33 bits",
                [](json::object& o) { o["source"].at(0).as_object()["mtimeLow"] = 1ULL << 32U; }),
        offered("fraction",
                [](json::object& o) { o["source"].at(0).as_object()["mtimeLow"] = 1.5; }),
        offered("second wrong", [](json::object& o) { o["source"].as_array().emplace_back("x"); }),
        offered("compress 2", [](json::object& o) { o["compress"] = 2; }),
        offered("no id", [](json::object& o) { o["jobinstanceid"] = ""; }),
        offered("control", [](json::object& o) { o["jobinstanceid"] = "a\nb"; }),
        offered("long id", [](json::object& o) { o["jobinstanceid"] = std::string(256, 'x'); }),
        offered("long path",
                [](json::object& o) {
                    o["source"].at(0).as_object()["path"] = std::string(131073, 'x');
                }),
        info("NUL", 400, [](json::object& o) { o["sourcename"] = json::string_view("a\0b", 3); }),
        info("no attribute", 400,
             [](json::object& o) { o["attri"].as_object().erase("nFileSizeLow"); }),
        info("wide attribute", 400,
             [](json::object& o) { o["attri"].as_object()["nFileSizeLow"] = 1ULL << 32U; }),
        info("folder as file", 400,
             [](json::object& o) { o["attri"].as_object()["dwFileAttributes"] = 16; }),
        info("file as folder", 400, [](json::object& o) { o["type"] = "folder"; }),
        info("unknown type", 400, [](json::object& o) { o["type"] = "link"; }),
        info("folder with bytes", 400,
             [](json::object& o) {
                 o["type"] = "folder";
                 o["attri"].as_object()["dwFileAttributes"] = 16;
             }),
        info("too large", 413, [](json::object& o) { o["totalsizeHigh"] = 0xFFFFFFFFU; }),
        {"start negative", startJobPath,
         spoilt(startBody, [](json::object& o) { o["totalsize"] = -1; }), 400},
        {"start text", startJobPath,
         spoilt(startBody, [](json::object& o) { o["totalsize"] = "1"; }), 400},
        {"start long time", startJobPath,
         spoilt(startBody, [](json::object& o) { o["starttime"] = std::string(65, '1'); }), 400},
        {"errors empty path", addErrorsPath,
         spoilt(errorsBody, [](json::object& o) { o["errors"].at(0).as_object()["path"] = ""; }),
         400},
        {"errors second wrong", addErrorsPath,
         spoilt(errorsBody, [](json::object& o) { o["errors"].as_array().emplace_back(1); }), 400},
        {"errors wide code", addErrorsPath,
         spoilt(errorsBody,
                [](json::object& o) { o["errors"].at(0).as_object()["code"] = 1ULL << 32U; }),
         400},
        {"login control", loginPath,
         spoilt(loginBody, [](json::object& o) { o["machine"] = "a\nb"; }), 400},
        {"login empty machine", loginPath,
         spoilt(loginBody, [](json::object& o) { o["machine"] = ""; }), 400},
    };
}

std::vector<Row> stateRows() {
    const auto renamed = [](std::string body, const std::string& instance) {
        const size_t at = body.find("\"run\"");
        return body.replace(at, 5, "\"" + instance + "\"");
    };
    std::vector<Row> rows = {
        {"start unknown job", startJobPath,
         R"({"jobdefinitionid":"other","jobinstanceid":"run","totalfiles":1,"totaldirectories":0,"totalsize":1,"starttime":"now"})",
         409},
        {"offer unknown job", filesToBackupPath,
         spoilt(offerBody, [](json::object& o) { o["id"] = "other"; }), 409},
        {"incomplete", endJobPath, endBody, 409},
        {"end pending", endJobPath, renamed(endBody, "pending"), 409},
        {"info pending", uploadFilePath, fileInfo("pending", "new", 10), 409},
        {"block pending", uploadBlockPath, block("1.jpg", "x", "pending", "x"), 409,
         std::string(formType)},
        {"late error", addErrorsPath, renamed(errorsBody, "completed"), 409},
        {"unknown path", "/dorvo/WebServer/nothing", "{}", 404},
        {"path with NUL", "/dorvo/WebServer/jobs/StartJob.php%00", startBody, 400},
        {"malformed escape", "/dorvo/WebServer/jobs/StartJob.php%2", startBody, 400},
    };
    for (const auto& [instance, status] :
         {std::pair{"unknown", 404}, std::pair{"bobs", 403}, std::pair{"completed", 409},
          std::pair{"cancelled", 409}}) {
        const std::string name = std::string(" ") + instance;
        rows.push_back({"info" + name, uploadFilePath, fileInfo(instance, "new", 10), status});
        rows.push_back({"block" + name, uploadBlockPath, block("2.jpg", "tail", instance), status,
                        std::string(formType)});
        if (status != 404) {
            rows.push_back(
                {"offer" + name, filesToBackupPath, renamed(offerBody, instance), status});
        }
        if (status == 403 || instance == std::string("cancelled")) {
            rows.push_back({"start" + name, startJobPath, renamed(startBody, instance), status});
        }
        if (instance != std::string("completed")) {
            rows.push_back({"end" + name, endJobPath, renamed(endBody, instance), status});
            rows.push_back({"errors" + name, addErrorsPath, renamed(errorsBody, instance), status});
        }
        if (instance != std::string("cancelled")) {
            rows.push_back({"cancel" + name, cancelJobPath, renamed(cancelBody, instance), status});
        }
    }
    return rows;
}

std::vector<Row> blockRows() {
    const std::string form(formType);
    const std::string good = block("2.jpg", "tail");
    const auto without = [&](const std::string& part) {
        std::string body = good;
        const size_t at = body.find("name=\"" + part + "\"");
        return body.replace(at + 6, part.size(), "other");
    };
    return {
        {"wrong MD5", uploadBlockPath, block("2.jpg", "tail", "run", "file", std::string(32, '0')),
         400, form},
        {"upper-case MD5", uploadBlockPath,
         block("2.jpg", "tail", "run", "file", "7AEA2552DFE7EB84B9443B6FC9BA6E01"), 400, form},
        {"number 0", uploadBlockPath, block("0.jpg", "tail"), 400, form},
        {"no number", uploadBlockPath, block(".jpg", "tail"), 400, form},
        {"negative number", uploadBlockPath, block("-2.jpg", "tail"), 400, form},
        {"huge number", uploadBlockPath, block("4294967298.jpg", "tail"), 400, form},
        {"other suffix", uploadBlockPath, block("2.png", "tail"), 400, form},
        {"beyond the file", uploadBlockPath, block("3.jpg", "tail"), 400, form},
        {"too short", uploadBlockPath, block("2.jpg", "tai"), 400, form},
        {"too long", uploadBlockPath, block("2.jpg", "tail!"), 400, form},
        {"short first", uploadBlockPath, block("1.jpg", "tail"), 400, form},
        {"empty", uploadBlockPath, block("2.jpg", ""), 400, form},
        {"gap", uploadBlockPath, block("2.jpg", "tail", "run", "untouched"), 409, form},
        {"folder", uploadBlockPath, block("1.jpg", "tail", "run", "folder"), 400, form},
        {"awaited", uploadBlockPath, block("1.jpg", "tail", "run", "awaited"), 409, form},
        {"unknown file", uploadBlockPath, block("1.jpg", "tail", "run", "nothing"), 404, form},
        {"NUL", uploadBlockPath, block("2.jpg", "tail", "run", std::string("fi\0le", 5)), 400,
         form},
        {"no path", uploadBlockPath, block("2.jpg", "tail", "run", ""), 400, form},
        {"no md5", uploadBlockPath, without("md5"), 400, form},
        {"no instance", uploadBlockPath, without("jobinstanceid"), 400, form},
        {"no source", uploadBlockPath, without("sourcename"), 400, form},
        {"no file", uploadBlockPath, without("file"), 400, form},
        {"two files", uploadBlockPath,
         [&] {
             std::string b = good;
             return b.replace(b.find("submit"), 6, "file");
         }(),
         400, form},
        {"other boundary", uploadBlockPath, good, 400, "multipart/form-data; boundary=else"},
        {"no boundary", uploadBlockPath, good, 400, "multipart/form-data"},
        {"JSON type", uploadBlockPath, good, 400, "application/json"},
        {"JSON", uploadBlockPath, "{}", 400, form},
        {"cut", uploadBlockPath, good.substr(0, good.size() - 4), 400, form},
        {"trailing bytes", uploadBlockPath, good + "x", 400, form},
    };
}

class BadRequests : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        backup("completed", {{"file"}});
        offer("cancelled", {{"file"}});
        cancel("cancelled");
        offer("bobs", {{"file"}}, "job", bob);
        offer("pending", {{"x"}});
        offer("run", {{"awaited"}});
        ASSERT_EQ(start("run"), 200);
        ASSERT_EQ(putInfo("run", "file", blockBytes + 4), 200);
        ASSERT_EQ(putBlock("run", "file", 1, pattern(blockBytes)), 200);
        ASSERT_EQ(putInfo("run", "untouched", blockBytes + 4), 200);
        auto folder = json::parse(fileInfo("run", "folder", 0)).as_object();
        folder["type"] = "folder";
        folder["attri"].as_object()["dwFileAttributes"] = 16;
        ASSERT_EQ(post(uploadFilePath, json::serialize(folder)).status, 200);
    }

    void refuse(const std::vector<Row>& rows) {
        const std::string before = everything();
        for (const Row& row : rows) {
            const Answer answer = postAs(alice, row.path, row.body, row.contentType);
            EXPECT_EQ(answer.status, row.status) << row << " " << answer.body;
            if (answer.status >= 400) {
                EXPECT_TRUE(answer.json().contains("error")) << row;
            }
            if (everything() != before) {
                FAIL() << row << " changed something";
            }
        }
        // What they were made of is good.
        EXPECT_EQ(
            postAs(alice, uploadBlockPath, block("2.jpg", "tail"), std::string(formType)).status,
            200);
        EXPECT_EQ(post(filesToBackupPath, offerBody).status, 200);
        EXPECT_EQ(post(uploadFilePath, infoBody()).status, 200);
        EXPECT_EQ(post(addErrorsPath, errorsBody).status, 200);
        EXPECT_EQ(post(cancelJobPath, cancelBody).status, 200);
    }
};

TEST_F(BadRequests, MalformedJsonOfEveryEndpoint) {
    refuse(jsonRows());
}
TEST_F(BadRequests, ValuesOutOfRange) {
    refuse(valueRows());
}
TEST_F(BadRequests, WrongStateOrOwner) {
    refuse(stateRows());
}
TEST_F(BadRequests, Blocks) {
    refuse(blockRows());
}

TEST_F(BadRequests, EveryEndpointButLoginNeedsASession) {
    const std::string before = everything();
    for (const auto& path :
         {filesToBackupPath, startJobPath, uploadFilePath, uploadBlockPath, addErrorsPath,
          endJobPath, cancelJobPath, listInstancesPath, logoutPath}) {
        for (const std::string& cookie :
             {std::string(), std::string("DORVOSESSION="), "DORVOSESSION=" + std::string(64, 'd'),
              alice + "a", alice.substr(0, alice.size() - 1), "OTHER=" + std::string(64, 'a')}) {
            EXPECT_EQ(postAs(cookie, path, "{}").status, 401) << path << " " << cookie;
        }
    }
    EXPECT_EQ(everything(), before);
}

}  // namespace

}  // namespace dorvo
