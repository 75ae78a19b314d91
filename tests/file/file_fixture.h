// Files of a test's own, and what the tests of files do all the time.
#pragma once

#include <gtest/gtest.h>
#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "support/child_process.h"
#include "support/own_folder.h"

namespace qv::test
{

inline constexpr uint32_t kBoth = QV_FILE_READ | QV_FILE_WRITE;

class File : public testing::Test
{
protected:
    ~File() override { EXPECT_EQ(CountDescriptors(), m_descriptors); }

    QVRESULT Open(const std::u16string& name, uint32_t flags, uint32_t mode = 0644)
    {
        return QVFileOpen(m_folder.Text(name).c_str(), flags, mode, &m_handle);
    }
    // Opens, closes, and gives the result.
    QVRESULT Try(const std::u16string& name, uint32_t flags, uint32_t mode = 0644)
    {
        const QVRESULT result = Open(name, flags, mode);
        EXPECT_EQ(m_handle == QV_HANDLE_NONE, result < 0);
        EXPECT_EQ(QVFileClose(m_handle), S_OK);
        return result;
    }
    void Put(const std::string& name, const std::string& content, mode_t mode = 0644)
    {
        std::ofstream(m_folder.Bytes(name)) << content;
        chmod(m_folder.Bytes(name).c_str(), mode);
    }
    std::string Content(const std::string& name)
    {
        std::ifstream file(m_folder.Bytes(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool Exists(const std::string& name) { return access(m_folder.Bytes(name).c_str(), F_OK) == 0; }

    std::ptrdiff_t m_descriptors = CountDescriptors();
    OwnFolder m_folder;
    QVHandle m_handle = QV_HANDLE_NONE;
};

inline std::string Read(QVHandle file, uint32_t count = 100)
{
    std::string text(count, '?');
    QVFileRead(file, text.data(), count, &count);
    return text.substr(0, count);
}

inline QVRESULT Write(QVHandle file, const std::string& text)
{
    uint32_t written = 0;
    return QVFileWrite(file, text.data(), static_cast<uint32_t>(text.size()), &written);
}

} // namespace qv::test
