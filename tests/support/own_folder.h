// A folder of a test's own, gone at its end.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace qv::test
{

class OwnFolder
{
public:
    explicit OwnFolder(const std::string& parent = "/tmp") : m_path(parent + "/qvcore6-test-XXXXXX")
    {
        if (mkdtemp(m_path.data()) == nullptr) {
            std::abort();
        }
    }
    ~OwnFolder() { std::filesystem::remove_all(m_path); }
    OwnFolder(const OwnFolder&) = delete;
    OwnFolder& operator=(const OwnFolder&) = delete;

    std::string Bytes(const std::string& name = "") const { return m_path + "/" + name; }
    std::u16string Text(const std::u16string& name = u"") const
    {
        return std::u16string(m_path.begin(), m_path.end()) + u"/" + name;
    }
    std::ptrdiff_t Count() const
    {
        return std::distance(std::filesystem::directory_iterator(m_path), {});
    }

private:
    std::string m_path;
};

} // namespace qv::test
