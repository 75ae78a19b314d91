// Opening files, rights, positions and locked ranges.
#include <gtest/gtest.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "file/file_fixture.h"
#include "support/sleepers.h"

using namespace qv::test;

namespace
{

TEST_F(File, FlagsChooseWhatIsOpenedAndWhatBecomesOfIt)
{
    constexpr uint32_t kCreate = QV_FILE_CREATE;
    constexpr uint32_t kTruncate = QV_FILE_TRUNCATE;
    constexpr uint32_t kExclusive = QV_FILE_EXCLUSIVE;
    const struct
    {
        uint32_t flags;
        QVRESULT missing, existing;
        bool empties;
    } rows[] = {
        {QV_FILE_WRITE, QV_E_FILE_NOT_FOUND, S_OK, false},
        {kCreate | QV_FILE_WRITE, QV_S_CREATED, S_OK, false},
        {kCreate, QV_S_CREATED, S_OK, false},
        {kTruncate | QV_FILE_WRITE, QV_E_FILE_NOT_FOUND, S_OK, true},
        {kTruncate | QV_FILE_READ, E_FAIL, E_FAIL, false},
        {kTruncate | kCreate | QV_FILE_WRITE, QV_S_CREATED, S_OK, true},
        {kTruncate | kCreate | QV_FILE_READ, QV_S_CREATED, S_OK, true},
        {kTruncate | kCreate, QV_S_CREATED, S_OK, true},
        {kExclusive | kBoth, E_FAIL, E_FAIL, false},
        {kExclusive | kTruncate | kBoth, E_FAIL, E_FAIL, false},
        {kExclusive | kCreate | QV_FILE_WRITE, S_OK, E_FAIL, false},
        {kExclusive | kCreate | kTruncate | QV_FILE_WRITE, S_OK, E_FAIL, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flags);
        EXPECT_EQ(Try(u"missing", row.flags), row.missing);
        EXPECT_EQ(Exists("missing"), row.missing >= 0);
        unlink(m_folder.Bytes("missing").c_str());
        Put("there", "content");
        EXPECT_EQ(Try(u"there", row.flags), row.existing);
        EXPECT_EQ(Content("there"), row.empties ? "" : "content");
    }
}

// Also for the superuser, whom the kernel lets pass.
TEST_F(File, WhatMayNotBeChangedIsNot)
{
    Put("read-only", "content", 0444);
    mkdir(m_folder.Bytes("folder").c_str(), 0755);
    ASSERT_EQ(symlink("nowhere", m_folder.Bytes("dangling").c_str()), 0);
    const struct
    {
        std::u16string name;
        uint32_t flags;
        QVRESULT result;
    } rows[] = {
        {u"read-only", QV_FILE_READ, S_OK},
        {u"read-only", kBoth, E_ACCESSDENIED},
        {u"read-only", QV_FILE_READ | QV_FILE_CREATE | QV_FILE_TRUNCATE, E_ACCESSDENIED},
        {u"read-only", QV_FILE_READ | QV_FILE_TEMPORARY, E_ACCESSDENIED},
        {u"folder", QV_FILE_READ, E_ACCESSDENIED},
        {u"folder/", QV_FILE_WRITE, E_ACCESSDENIED},
        {u"folder", 0, E_ACCESSDENIED},
        {u"read-only/", QV_FILE_READ, E_FAIL},
        {u"read-only\\below", QV_FILE_READ, QV_E_FILE_NOT_FOUND},
        {u"new/", QV_FILE_WRITE | QV_FILE_CREATE, E_FAIL},
        {u"no-folder/new", QV_FILE_WRITE | QV_FILE_CREATE, QV_E_FILE_NOT_FOUND},
        {u"dangling", QV_FILE_WRITE, QV_E_FILE_NOT_FOUND},
        {u"dangling", QV_FILE_WRITE | QV_FILE_CREATE, QV_S_CREATED}, // what it leads to
        {{u'x', 0xDCC3, 0xDCA9}, QV_FILE_WRITE | QV_FILE_CREATE, E_FAIL},
        {std::u16string(300, u'x'), QV_FILE_WRITE | QV_FILE_CREATE, E_FAIL},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Try(row.name, row.flags), row.result) << &row - rows;
    }
    EXPECT_EQ(Content("read-only"), "content");
    EXPECT_EQ(m_folder.Count(), 4);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"read-only").c_str()), E_ACCESSDENIED);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"folder").c_str()), E_ACCESSDENIED);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"dangling").c_str()), S_OK);
    EXPECT_EQ(QVFileDelete(m_folder.Text(u"dangling").c_str()), QV_E_FILE_NOT_FOUND);
    EXPECT_TRUE(Exists("nowhere"));
    EXPECT_EQ(QVFileOpen(nullptr, kBoth, 0, &m_handle), QV_E_FILE_NOT_FOUND);

    // 259 units fit, one more does not, and nothing of it is used.
    for (const std::size_t length : {259u, 260u}) {
        std::u16string path = m_folder.Text();
        path.resize(length - 9, u'/');
        EXPECT_EQ(QVFileOpen((path + u"some-name").c_str(), kBoth | QV_FILE_CREATE, 0, &m_handle),
                  length == 259 ? QV_S_CREATED : E_FAIL);
        QVFileClose(m_handle);
    }
}

TEST_F(File, ModeMakesReadOnlyFiles)
{
    const std::pair<uint32_t, bool> rows[] = {
        {0644, false}, {0420, false}, {0444, true}, {0xFFFFFF00, true}};
    for (const auto& [mode, isReadOnly] : rows) {
        ASSERT_EQ(Open(u"new", kBoth | QV_FILE_CREATE, mode), QV_S_CREATED);
        EXPECT_EQ(Write(m_handle, "by its maker"), S_OK);
        QVFileClose(m_handle);
        EXPECT_EQ(QVFileDelete(m_folder.Text(u"new").c_str()), isReadOnly ? E_ACCESSDENIED : S_OK);
        unlink(m_folder.Bytes("new").c_str());
    }
}

TEST_F(File, RightsAreThoseAskedFor)
{
    Put("file", "content");
    const struct
    {
        uint32_t flags;
        QVRESULT read, write;
    } rows[] = {{QV_FILE_READ, S_OK, E_ACCESSDENIED},
                {QV_FILE_WRITE, E_ACCESSDENIED, S_OK},
                {0, E_ACCESSDENIED, E_ACCESSDENIED}};
    for (const auto& row : rows) {
        Open(u"file", row.flags);
        char byte = 0;
        uint32_t count = 7;
        uint64_t size = 0;
        EXPECT_EQ(QVFileRead(m_handle, &byte, 1, &count), row.read);
        EXPECT_EQ(count, row.read == S_OK ? 1u : 0u);
        EXPECT_EQ(Write(m_handle, "O"), row.write);
        EXPECT_EQ(QVFileFlush(m_handle), row.write);
        EXPECT_EQ(QVFileGetSize(m_handle, &size), S_OK);
        EXPECT_EQ(size, 7u);
        QVFileClose(m_handle);
        EXPECT_EQ(QVFileRead(m_handle, &byte, 1, &count), E_HANDLE);
        EXPECT_EQ(QVFileClose(m_handle), E_HANDLE);
    }
}

TEST_F(File, PositionsAreTestedBeforeAnythingMoves)
{
    Put("file", "0123456789");
    Open(u"file", kBoth | QV_FILE_APPEND);
    const struct
    {
        int32_t offset;
        uint32_t origin;
        QVRESULT result;
        uint32_t position;
    } rows[] = {
        {0, QV_SEEK_CURRENT, S_OK, 10},
        {-4, QV_SEEK_CURRENT, S_OK, 6},
        {-7, QV_SEEK_CURRENT, E_FAIL, 0xFFFFFFFF},
        {-1, QV_SEEK_BEGIN, E_FAIL, 0xFFFFFFFF},
        {0, 3, E_FAIL, 0xFFFFFFFF},
        {0, QV_SEEK_CURRENT, S_OK, 6},
        {INT32_MAX, QV_SEEK_BEGIN, S_OK, 0x7FFFFFFF},
        {INT32_MAX, QV_SEEK_CURRENT, S_OK, 0xFFFFFFFE},
        {1, QV_SEEK_CURRENT, S_OK, 0xFFFFFFFF}, // a position like any other
        {1, QV_SEEK_CURRENT, E_FAIL, 0xFFFFFFFF},
        {-1, QV_SEEK_END, S_OK, 9},
    };
    for (const auto& row : rows) {
        uint32_t position = 1;
        EXPECT_EQ(QVFileSeek(m_handle, row.offset, row.origin, &position), row.result);
        EXPECT_EQ(position, row.position) << &row - rows;
    }
    EXPECT_EQ(Read(m_handle), "9");
    uint64_t position = 1;
    EXPECT_EQ(QVFileSeek64(m_handle, int64_t{5} << 32, QV_SEEK_CURRENT, &position), S_OK);
    EXPECT_EQ(position, (uint64_t{5} << 32) + 10);
    EXPECT_EQ(QVFileSeek64(m_handle, INT64_MAX, QV_SEEK_CURRENT, &position), E_FAIL);
    EXPECT_EQ(Write(m_handle, "far"), S_OK);
    QVFileClose(m_handle);
    EXPECT_EQ(Open(u"file", QV_FILE_APPEND | QV_FILE_WRITE), E_FAIL) << "its end is too far";
    EXPECT_EQ(Write(m_handle, "#"), S_OK) << "and the handle is good";
    QVFileClose(m_handle);
}

TEST_F(File, LocksHoldBetweenHandles)
{
    Put("file", "");
    QVHandle a = QV_HANDLE_NONE, b = QV_HANDLE_NONE;
    Open(u"file", QV_FILE_READ), a = m_handle;
    Open(u"file", QV_FILE_WRITE), b = m_handle;
    constexpr QVRESULT kTaken = E_FAIL;
    const struct
    {
        QVHandle handle;
        char act; // e: exclusive, s: shared, u: unlock
        uint32_t offset, length;
        QVRESULT result;
    } rows[] = {
        {a, 's', 10, 10, S_OK},
        {a, 's', 15, 10, S_OK},
        {b, 's', 12, 1, S_OK},
        {b, 'e', 9, 2, kTaken},
        {b, 'e', 9, 1, S_OK},
        {a, 'e', 9, 1, kTaken},
        {a, 'e', 12, 1, kTaken},
        {b, 'u', 12, 2, E_FAIL},
        {b, 'u', 12, 1, S_OK},
        {a, 'u', 10, 10, S_OK},
        {b, 'e', 10, 5, S_OK},
        {b, 'e', 15, 1, kTaken},
        {a, 'u', 15, 10, S_OK},
        {b, 'e', 15, 99, S_OK},
        {b, 'e', 20, 1, kTaken},
        {b, 'e', 0, 0, S_OK},
        {b, 'u', 0, 0, S_OK},
        {a, 'e', 0xFFFFFFFF, 0xFFFFFFFF, S_OK},
        {a, 'u', 0xFFFFFFFF, 0xFFFFFFFF, S_OK},
    };
    for (const auto& row : rows) {
        const QVRESULT result = row.act == 'u' ? QVFileUnlock(row.handle, row.offset, row.length)
                                               : QVFileLock(row.handle, row.offset, row.length,
                                                            row.act == 's' ? QV_LOCK_SHARED : 0);
        EXPECT_EQ(result, row.result) << &row - rows;
    }
    Try(u"file", kBoth); // another handle of the file goes, and takes no lock along
    EXPECT_EQ(QVFileLock(a, 15, 1, 0), kTaken);
    Child copy([] { return pause() == 0; });
    EXPECT_EQ(QVFileClose(b), S_OK);
    EXPECT_EQ(QVFileLock(a, 15, 1, 0), S_OK) << "though a child has the same open file";
    EXPECT_EQ(QVFileClose(a), S_OK);
    EXPECT_EQ(QVFileLock(a, 15, 1, 0), E_HANDLE);
    EXPECT_EQ(QVFileUnlock(a, 15, 1), E_HANDLE);
}

// Waits go on after signals, and a handle may be closed under one.
TEST_F(File, AWaitForALockEndsWithIt)
{
    Put("file", "");
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);
    for (const bool closes : {false, true}) {
        QVHandle holder = QV_HANDLE_NONE;
        Open(u"file", kBoth), holder = m_handle;
        Open(u"file", kBoth);
        ASSERT_EQ(QVFileLock(holder, 0, 1, 0), S_OK);
        ASSERT_EQ(QVFileLock(m_handle, 1, 9, QV_LOCK_SHARED), S_OK);
        std::atomic<pthread_t> thread{};
        Sleeper waiter([&] {
            thread = pthread_self();
            EXPECT_EQ(QVFileLock(m_handle, 0, 5, QV_LOCK_SHARED | QV_LOCK_WAIT),
                      closes ? E_HANDLE : S_OK);
        });
        for (int i = 0; i < 5; ++i) {
            waiter.AwaitAsleep();
            ASSERT_FALSE(waiter.IsDone());
            pthread_kill(thread, SIGUSR1);
        }
        EXPECT_EQ(QVFileLock(m_handle, 0, 1, QV_LOCK_WAIT), E_FAIL) << "not for oneself";
        if (closes) {
            QVFileClose(m_handle);
        } else {
            EXPECT_EQ(QVFileUnlock(m_handle, 1, 9), S_OK);
        }
        EXPECT_EQ(QVFileLock(holder, 2, 1, 0), S_OK) << "what is waited for is not held";
        EXPECT_EQ(QVFileUnlock(holder, 2, 1), S_OK);
        EXPECT_EQ(QVFileUnlock(holder, 0, 1), S_OK);
        waiter.AwaitDone();
        EXPECT_EQ(QVFileLock(holder, 0, 1, 0), closes ? S_OK : E_FAIL);
        QVFileClose(holder);
        if (!closes) {
            QVFileClose(m_handle);
        }
    }
}

} // namespace
