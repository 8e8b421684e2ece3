// The end of an instance, which may come more than once. That a record which was written in part is
// written over only a disk without room shows.
#include "storage/local/localinstancewriter.h"

#include "storage/local/localindexreader.h"
#include "storage/local/localstoragetest.h"
#include "support/fails_with.h"

namespace dorvo {
namespace {

class LocalWriterTest : public LocalStorageTest {
protected:
    std::unique_ptr<LocalInstanceWriter> writer() {
        LocalInstanceDocument document;
        auto made = LocalInstanceWriter::open(place(), instance(), document);
        EXPECT_TRUE(made && made->load()) << GetLastError();
        return made;
    }
    static bool append(LocalInstanceWriter& writer, const char16_t* path) {
        std::vector<std::byte> package(32, std::byte{7});
        LocalRecord record;
        record.size = package.size();
        record.path = path;
        return writer.writePackage(0, package) && writer.append(record);
    }
    // The paths of the index, each behind its kind.
    std::string stored() const {
        LocalIndexReader reader;
        EXPECT_TRUE(reader.open(place().index(instance())));
        std::string text;
        LocalRecord record;
        while (reader.next(record)) {
            text += std::to_string(static_cast<int>(record.kind)) +
                    toUtf8(std::wstring(record.path.begin(), record.path.end())) + " ";
        }
        EXPECT_EQ(GetLastError(), DWORD{ERROR_HANDLE_EOF});
        return text;
    }
};

TEST_F(LocalWriterTest, ACheckPointIsMadeWhenOneIsDue) {
    const auto made = writer();
    LocalRecord record;
    record.path = u"a";
    record.size = LocalInstanceWriter::checkpointInterval - 16;
    EXPECT_TRUE(made->append(record));
    record.size = 16;
    EXPECT_TRUE(made->append(record) && made->append(record));
    EXPECT_EQ(stored(), "1a 1a 5 1a ");
}

TEST_F(LocalWriterTest, AnEndKeepsWhatIsCarriedOver) {
    const auto made = writer();
    LocalRecord record;
    record.container.fill(9);
    record.size = 16;
    record.path = u"c";
    ASSERT_TRUE(made->plan(std::span(&record, 1), {}) && made->finish({}) && made->finish({}));
    EXPECT_EQ(stored(), "1c ");
    EXPECT_EQ(made->records(), 1u);
}

TEST_F(LocalWriterTest, AnEndThatWasBrokenOffIsMadeAnew) {
    auto made = writer();
    ASSERT_TRUE(append(*made, u"a") && append(*made, u"b") && made->checkpoint());
    LocalRecord failed;
    failed.kind = LocalRecord::Kind::failed;
    const std::u16string paths[] = {u"x", u"y", u"z"};
    std::vector<LocalRecord> errors;
    for (const std::u16string& path : paths) {
        failed.path = path;
        errors.push_back(failed);
    }
    // Behind the packages lies what an item that failed has left.
    const std::vector<std::byte> left(100);
    ASSERT_TRUE(made->writePackage(0, left));
    for (const size_t count : {size_t{3}, size_t{1}, size_t{0}, size_t{2}}) {
        SCOPED_TRACE(count);
        ASSERT_TRUE(made->finish(std::span(errors).first(count)));
        EXPECT_EQ(made->records(), 3 + count);
        EXPECT_EQ(made->indexSize(), sizeOfFile(place().index(instance())));
        EXPECT_EQ(stored(), std::string("1a 1b 5 3x 3y 3z ").substr(0, 8 + 3 * count));
        EXPECT_EQ(sizeOfFile(place().packages(instance())), 64u);
    }
    // Killed before the document said so: the run goes on, and ends again.
    made.reset();
    made = writer();
    EXPECT_EQ(stored(), "1a 1b 5 ");
    EXPECT_EQ(made->records(), 3u);
    ASSERT_TRUE(made->finish(std::span(errors).first(1)));
    EXPECT_EQ(stored(), "1a 1b 5 3x ");
    EXPECT_EQ(made->records(), 4u);
    made.reset();
    cut(place().packages(instance()), 63);
    EXPECT_FAILS(ERROR_INVALID_DATA, writer()->finish(errors));
}

}  // namespace
}  // namespace dorvo
