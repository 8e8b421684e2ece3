// Requests that must be refused, each with the status it gets; none of them changes anything.
#include <array>
#include <map>
#include <vector>

#include "common/digest.h"
#include "testing/service_fixture.h"

namespace dorvo {

namespace {

namespace json = boost::json;

// A body that each endpoint takes, where the fixture's backups are there.
const std::map<std::string_view, std::string>& goodBodies() {
    static const std::map<std::string_view, std::string> bodies = {
        {filesToBackupPath, R"({"id":"job","jobinstanceid":"run","compress":true,)"
                            R"("source":[{"path":"x","mtimeHigh":0,"mtimeLow":1}]})"},
        {startJobPath,
         R"({"jobdefinitionid":"job","jobinstanceid":"run","totalfiles":1,"totaldirectories":0,)"
         R"("totalsize":1,"starttime":"now"})"},
        {uploadFilePath, fileInfo("run", "new", 10)},
        {addErrorsPath, R"({"jobinstanceid":"run","errors":[{"path":"x","code":5,"reason":""}]})"},
        {endJobPath, R"({"jobinstanceid":"whole","endtime":"now"})"},
        {cancelJobPath, R"({"id":"run"})"},
        {listInstancesPath, R"({"machine":"","jobdefinitionid":""})"},
        {loginPath, R"({"user":"alice","password":"x","machine":"pc"})"},
        {startRestorePath, R"({"jobdefinitionid":"restore","jobinstanceid":"done"})"},
        {fileInfoPath, R"({"machine":"pc","jobinstanceid":"done","path":"","filename":"file"})"},
        {downloadPath,
         R"({"machine":"pc","jobinstanceid":"done","path":"","filename":"file","blockindex":"1"})"},
        {listFilesPath,
         R"({"machine":"pc","jobinstanceid":"done","path":"","after":"","limit":1})"},
        {historyPath, R"({"instanceId":"restore"})"},
        {exportKeysPath, R"({"md5":"00112233445566778899aabbccddeeff"})"},
    };
    return bodies;
}

class BadRequests : public ServiceFixture {
protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        backup("done", {{"file"}});
        offer("cancelled", {{"file"}});
        cancel("cancelled");
        offer("bobs", {{"file"}}, "job", bob);
        offer("pending", {{"x"}});
        start("whole");
        offer("run", {{"awaited"}});
        ASSERT_EQ(start("run"), 200);
        ASSERT_EQ(putInfo("run", "file", blockBytes + 4), 200);
        ASSERT_EQ(putBlock("run", "file", 1, pattern(blockBytes)), 200);
        ASSERT_EQ(putInfo("run", "untouched", blockBytes + 4), 200);
        ASSERT_EQ(post(uploadFilePath, folderInfo("run", "folder")).status, 200);
        before_ = everything();
    }

    void refuse(std::string_view path, const std::string& body, int status,
                const std::string& contentType = "application/json") {
        const std::string what = std::string(path) + " " + body.substr(0, 300);
        const Answer answer = postAs(alice, path, body, contentType);
        EXPECT_EQ(answer.status, status) << what << " " << answer.body.substr(0, 300);
        if (answer.status >= 400) {
            EXPECT_TRUE(answer.json().contains("error")) << what;
        }
        ASSERT_TRUE(everything() == before_) << what << " changed something";
    }

    std::string before_;
};

TEST_F(BadRequests, MalformedJsonOfEveryEndpoint) {
    for (const auto& [path, body] : goodBodies()) {
        for (const std::string& wrong :
             {std::string(), std::string("x"), std::string("[]"), body + "x",
              body.substr(0, body.size() - 1), std::string(10000, '['), "\xff" + body,
              std::string("{\"a\":\"\xc3\"}")}) {
            refuse(path, wrong, 400);
        }
        const auto good = json::parse(body).as_object();
        for (const auto& member : good) {
            auto object = good;
            object[member.key()] = nullptr;
            refuse(path, json::serialize(object), 400);
            object.erase(member.key());
            refuse(path, json::serialize(object), 400);
        }
    }
}

TEST_F(BadRequests, ValuesOutOfRange) {
    const std::string nul = R"("a\u0000b")";
    const std::string wide = "4294967296";
    const std::string longId = "\"" + std::string(256, 'x') + "\"";
    const std::string longPath = "\"" + std::string(131073, 'x') + "\"";
    struct Row {
        std::string_view path;
        const char* where;
        std::vector<std::string> values;  // as JSON
        int status = 400;
    };
    const Row rows[] = {
        {filesToBackupPath, "/source/0/path", {"1"}},
        {filesToBackupPath, "/source/0/mtimeLow", {"-1", wide, "1.5"}},
        {filesToBackupPath, "/source", {R"([{"path":"x","mtimeHigh":0,"mtimeLow":1},"x"])"}},
        {filesToBackupPath, "/compress", {"2"}},
        {filesToBackupPath, "/jobinstanceid", {R"("a\nb")", longId}},
        {uploadFilePath, "/attri/nFileSizeLow", {"null"}},
        {uploadFilePath, "/attri/dwFileAttributes", {"16"}},
        {uploadFilePath, "/type", {R"("folder")", R"("link")"}},
        {uploadFilePath, "/totalsizeHigh", {"4294967295"}, 413},
        {startJobPath, "/totalsize", {"-1"}},
        {startJobPath, "/starttime", {longId}},
        {addErrorsPath, "/errors/0/path", {"1"}},
        {uploadFilePath, "/sourcename", {nul, longPath, R"("")"}},
        {addErrorsPath, "/errors", {R"([{"path":"x","code":5,"reason":""},1])"}},
        {loginPath, "/machine", {R"("")"}},
        {fileInfoPath, "/machine", {R"("")"}},
        {fileInfoPath, "/filename", {R"("")"}},
        {downloadPath,
         "/blockindex",
         {R"("")", R"("0")", R"("-1")", R"("+1")", R"(" 1")", R"("1 ")", R"("0x1")", "1", longId}},
        {listFilesPath, "/limit", {"0", "18446744073709551615"}},
        {exportKeysPath,
         "/md5",
         {R"("00112233445566778899AABBCCDDEEFF")", R"("00112233445566778899aabbccddeef")",
          R"("00112233445566778899aabbccddeefg")"}},
    };
    for (const Row& row : rows) {
        for (const std::string& value : row.values) {
            auto body = json::parse(goodBodies().at(row.path));
            body.at_pointer(row.where) = json::parse(value);
            refuse(row.path, json::serialize(body), row.status);
        }
    }
    const auto page = [&](const char* rest, int status) {
        refuse(listInstancesPath, R"({"machine":"","jobdefinitionid":"",)" + std::string(rest),
               status);
    };
    page(R"("limit":0,"after":""})", 400);
    page(R"("limit":-1,"after":""})", 400);
    page(R"("limit":1})", 400);
    page(R"("limit":1,"after":"unknown"})", 404);
    page(R"("limit":1,"after":"bobs"})", 404);
    refuse("/dorvo/WebServer/nothing", "{}", 404);
    refuse("/dorvo/WebServer/jobs/StartJob.php%00", goodBodies().at(startJobPath), 400);
}

TEST_F(BadRequests, MoreThanAnyRequestHasUseFor) {
    const auto many = [](size_t count, const std::string& text) {
        std::string all;
        for (size_t i = 0; i < count; ++i) {
            all += (i == 0 ? "" : ",") + text;
        }
        return all;
    };
    const std::string rest = R"({"id":"job","jobinstanceid":"run","compress":true,"source":[)";
    refuse(filesToBackupPath, rest + many(1'000'000, "0") + "]}", 413);
    refuse(filesToBackupPath, rest + many(9, "[" + many(60'000, "0") + "]") + "]}", 413);
    refuse(addErrorsPath, "{\"errors\":[" + many(1, "{" + many(1001, "\"a\":0") + "}") + "]}", 413);
    refuse(addErrorsPath, "{\"a\":[" + many(100'001, "0") + "]}", 413);
    refuse(startJobPath, "{\"a\":[" + many(20'000, "0") + "]}", 413);
    refuse(startJobPath, "{\"" + std::string(300, 'a') + "\":0}", 413);
    refuse(addErrorsPath, "{\"a\":\"" + std::string(2'000'000, 'a') + "\"}", 413);
    refuse(startJobPath, "{\"a\":[" + many(19'990, "0") + "]}", 400);
    std::string deep = goodBodies().at(startJobPath);
    refuse(startJobPath,
           deep.insert(1, "\"a\":" + std::string(16, '[') + std::string(16, ']') + ","), 400);
}

TEST_F(BadRequests, MoreThanThereIsMemoryFor) {
    options.limits.memoryBytes = 1'000'000;
    restart();
    struct Row {
        std::string_view path;
        size_t size;
        bool taken;
    };
    // What a list comes to while it is handled is several times its size.
    const Row rows[] = {{filesToBackupPath, 300'000, false},
                        {filesToBackupPath, 200'000, true},
                        {addErrorsPath, 300'000, false},
                        {addErrorsPath, 200'000, true},
                        {endJobPath, 900'000, true}};
    for (const Row& row : rows) {
        const int status = post(row.path, "{}" + std::string(row.size, ' ')).status;
        EXPECT_EQ(status, row.taken ? 400 : 503) << row.path << row.size;
    }
}

TEST_F(BadRequests, HeadsThatAreNotServed) {
    const std::string large(2'000'000, ' ');
    EXPECT_EQ(postAs({}, filesToBackupPath, large).status, 401);  // for those who are logged in
    EXPECT_EQ(postAs({}, startJobPath, std::string(17'000, ' ')).status, 401);
    EXPECT_EQ(post(loginPath, std::string(17'000, ' ')).status, 413);
    EXPECT_EQ(post(startJobPath, large).status, 413);
    Client client(server->port());
    client.send("GET " + std::string(listInstancesPath) + " HTTP/1.1\r\nHost: x\r\n\r\n");
    const Answer answer = client.receive();
    EXPECT_EQ(answer.status, 405);
    EXPECT_EQ(answer.header("Allow"), "POST");
}

TEST_F(BadRequests, ABodyThatEndsEarly) {
    const std::string whole =
        Client::request(uploadFilePath, goodBodies().at(uploadFilePath) + " ", alice);
    Client client(server->port());
    client.send(whole.substr(0, whole.size() - 1));
    client.shutdownSend();
    client.waitForClose();
    EXPECT_EQ(everything(), before_);
}

TEST_F(BadRequests, WrongStateOrOwner) {
    // Of unknown, bobs, done, cancelled, pending and run; 0: not refused, or by another test.
    struct Column {
        std::string_view path;
        const char* where;
        std::array<int, 6> statuses;
    };
    const Column columns[] = {
        {filesToBackupPath, "/jobinstanceid", {0, 0, 409, 409, 0, 0}},
        {startJobPath, "/jobinstanceid", {0, 0, 0, 409, 0, 0}},
        {uploadFilePath, "/jobinstanceid", {404, 404, 409, 409, 409, 0}},
        {addErrorsPath, "/jobinstanceid", {404, 404, 409, 409, 0, 0}},
        {endJobPath, "/jobinstanceid", {404, 404, 0, 409, 409, 409}},  // run is incomplete
        {cancelJobPath, "/id", {404, 404, 409, 0, 0, 0}},
        {startRestorePath, "/jobinstanceid", {404, 404, 0, 409, 409, 409}},
        {fileInfoPath, "/jobinstanceid", {404, 404, 0, 409, 409, 409}},
        {downloadPath, "/jobinstanceid", {404, 404, 0, 409, 409, 409}},
        {listFilesPath, "/jobinstanceid", {404, 404, 0, 409, 409, 409}},
        {historyPath, "/instanceId", {404, 404, 404, 404, 404, 404}},  // no restores
        {filesToBackupPath, "/id", {409, 409, 409, 409, 409, 409}},    // no name of the job
        {startJobPath, "/jobdefinitionid", {409, 409, 409, 409, 409, 409}},
        {fileInfoPath, "/machine", {404, 404, 404, 404, 404, 404}},
        {downloadPath, "/machine", {404, 404, 404, 404, 404, 404}},
        {listFilesPath, "/machine", {404, 404, 404, 404, 404, 404}},
    };
    const char* const names[] = {"unknown", "bobs", "done", "cancelled", "pending", "run"};
    for (const Column& column : columns) {
        for (size_t i = 0; i < std::size(names); ++i) {
            if (column.statuses[i] != 0) {
                auto body = json::parse(goodBodies().at(column.path));
                body.at_pointer(column.where) = names[i];
                refuse(column.path, json::serialize(body), column.statuses[i]);
            }
        }
    }
}

TEST_F(BadRequests, Blocks) {
    const auto refuseBlock = [&](const std::string& fileName, const std::string& bytes, int status,
                                 const char* instance = "run", const std::string& path = "file",
                                 const std::string& md5 = {}) {
        refuse(uploadBlockPath,
               blockForm(instance, path, fileName, bytes, md5.empty() ? md5Text(bytes) : md5),
               status, std::string(formType));
    };
    for (const char* fileName :
         {"0.jpg", ".jpg", "-2.jpg", "4294967298.jpg", "2.png", "3.jpg", "1.jpg"}) {
        refuseBlock(fileName, "tail", 400);
    }
    for (const char* bytes : {"tai", "tail!", ""}) {
        refuseBlock("2.jpg", bytes, 400);
    }
    for (const std::string& md5 :
         {std::string(32, '0'), std::string("7AEA2552DFE7EB84B9443B6FC9BA6E01")}) {
        refuseBlock("2.jpg", "tail", 400, "run", "file", md5);
    }
    refuseBlock("2.jpg", "tail", 400, "run", "");
    refuseBlock("2.jpg", "tail", 400, "run", std::string("fi\0le", 5));
    refuseBlock("1.jpg", "tail", 400, "run", "folder");
    refuseBlock("2.jpg", "tail", 409, "run", "untouched");
    refuseBlock("1.jpg", "tail", 409, "run", "awaited");
    refuseBlock("1.jpg", "tail", 404, "run", "nothing");
    refuseBlock("1.jpg", "x", 409, "pending", "x");
    for (const auto& [instance, status] :
         {std::pair{"done", 409}, {"cancelled", 409}, {"bobs", 404}, {"unknown", 404}}) {
        refuseBlock("1.jpg", "file", status, instance);
    }
    const std::string good = blockForm("run", "file", "2.jpg", "tail", md5Text("tail"));
    const auto renamed = [&](const std::string& part, const char* name) {
        std::string body = good;
        return body.replace(body.find("\"" + part + "\"") + 1, part.size(), name);
    };
    for (const char* part : {"md5", "jobinstanceid", "sourcename", "file"}) {
        refuse(uploadBlockPath, renamed(part, "other"), 400, std::string(formType));
    }
    for (const std::string& body : {renamed("submit", "file"), std::string("{}"), good + "x",
                                    good.substr(0, good.size() - 4)}) {
        refuse(uploadBlockPath, body, 400, std::string(formType));
    }
    refuse(uploadBlockPath, good, 400, "multipart/form-data; boundary=else");
    refuse(uploadBlockPath, good, 400);
    EXPECT_EQ(postAs(alice, uploadBlockPath, good, std::string(formType)).status, 200);
}

TEST_F(BadRequests, WereMadeOfGoodOnes) {
    for (const auto& [path, body] : goodBodies()) {
        if (path != cancelJobPath) {
            const int status = path == loginPath ? 401 : path == historyPath ? 404 : 200;
            EXPECT_EQ(post(path, body).status, status) << path;
        }
    }
    EXPECT_EQ(post(cancelJobPath, goodBodies().at(cancelJobPath)).status, 200);
}

TEST_F(BadRequests, EveryEndpointButLoginNeedsASession) {
    auto bodies = goodBodies();
    bodies.erase(loginPath);
    for (const auto& path : {uploadBlockPath, getKeysPath, logoutPath}) {
        bodies[path] = "{}";
    }
    for (const auto& [path, body] : bodies) {
        for (const std::string& cookie :
             {std::string(), std::string("DORVOSESSION="), "DORVOSESSION=" + std::string(64, 'd'),
              alice + "a", alice.substr(0, alice.size() - 1), "OTHER=" + std::string(64, 'a')}) {
            EXPECT_EQ(postAs(cookie, path, body).status, 401) << path << " " << cookie;
        }
    }
    EXPECT_EQ(everything(), before_);
}

}  // namespace

}  // namespace dorvo
