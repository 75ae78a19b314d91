// Descriptors and the records behind their numbers.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <list>
#include <thread>

#include "platform/descriptor_handle.h"
#include "platform/error.h"

using namespace qv::platform;

namespace
{

std::atomic<int> g_alive{0};

class Note final : public DescriptorRecord
{
public:
    static constexpr DescriptorKind kKind = DescriptorKind::Process;

    Note() : DescriptorRecord(kKind) { ++g_alive; }
    DWORD Close(Descriptor descriptor) override { return CloseDescriptor(descriptor); }
    int value = 7;

private:
    ~Note() override
    {
        value = 0;
        --g_alive;
    }
};

RecordHold<DescriptorRecord> MakeNote()
{
    return RecordHold<DescriptorRecord>(new Note);
}

int OpenNull()
{
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST(Descriptor, ARecordGoesWithItsHandleOrWithTheNextOfItsNumber)
{
    const int file = OpenNull();
    EXPECT_FALSE(FindRecord(file));
    for (int i = 0; i < 2; ++i) { // the host may have closed the first
        ASSERT_EQ(PutRecord(file, MakeNote()), ERROR_SUCCESS);
    }
    EXPECT_TRUE(FindRecordOf<Note>(file));
    EXPECT_EQ(g_alive, 1);

    EXPECT_EQ(CloseHandle(file), kTrue);
    EXPECT_EQ(g_alive, 0);
    EXPECT_EQ(CloseHandle(file), kFalse);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(CloseHandle(-1), kTrue) << "the process";
    EXPECT_EQ(CloseHandle(-7), kFalse);

    EXPECT_EQ(PutRecord(1 << 20, MakeNote()), ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_FALSE(FindRecord(1 << 20));
    EXPECT_EQ(g_alive, 0);
}

TEST(Descriptor, StaysOffTheStandardNumbers)
{
    const int kept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const int file = AboveStandardNumbers(OpenNull());
    EXPECT_GT(file, STDERR_FILENO);
    EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "nothing is left there";
    dup2(kept, STDIN_FILENO);
    close(kept);
    close(file);
}

// Each round's record is used while another thread closes the handle and opens the next one.
TEST(Descriptor, AUserKeepsTheRecordThatAnotherThreadCloses)
{
    std::atomic<int> current{-1};
    std::atomic<bool> isOver{false};
    std::atomic<long> uses{0};
    std::list<std::jthread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!isOver) {
                if (const RecordHold<Note> note = FindRecordOf<Note>(current)) {
                    std::this_thread::yield();
                    uses += note->value == 7 ? 1 : -1'000'000'000;
                }
            }
        });
    }
    for (int round = 0; round < 5000 || uses == 0; ++round) {
        current = OpenNull();
        ASSERT_EQ(PutRecord(current, MakeNote()), ERROR_SUCCESS);
        std::this_thread::yield();
        ASSERT_EQ(CloseHandle(current), kTrue);
    }
    isOver = true;
    users.clear();
    EXPECT_GT(uses, 0);
    EXPECT_EQ(g_alive, 0);
}

} // namespace
