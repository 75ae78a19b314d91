// What stands in the registry is foreign data: any size, type and content.
#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "component/class_test.h"
#include "component/journal.h"

using namespace qv::test;

namespace
{

class RegistrationTest : public testing::Test
{
protected:
    void TearDown() override
    {
        g_registryResult = S_OK;
        g_registryAnswer = nullptr;
        QVComFlushFactoryCache();
        TakeJournal();
    }

    // The next reads give these bytes, as many as fit, and claim this size.
    void Answer(std::string bytes, uint32_t claimed)
    {
        g_registryAnswer = [bytes, claimed, this](void* data, uint32_t* size) {
            m_capacity = *size;
            std::memcpy(data, bytes.data(), std::min<std::size_t>(bytes.size(), *size));
            *size = claimed;
        };
    }

    uint32_t m_capacity = 0;
};

std::string Bytes(const std::u16string& text)
{
    return std::string(reinterpret_cast<const char*>(text.data()), 2 * text.size());
}

const std::u16string kGuidText = u"{7E57C0DE-0001-0002-0000-000000000000}";

TEST_F(RegistrationTest, AProgIDOfAnyLengthIsReadOrRefused)
{
    for (std::size_t length = 0; length <= 300; ++length) {
        SCOPED_TRACE(length);
        Answer(Bytes(kGuidText + std::u16string(1, 0)), 78);
        g_registryKey.clear();
        const std::u16string progId(length, u'p');
        GUID clsid = {};
        if (length <= 253) {
            EXPECT_EQ(QVComClassIDFromProgID(progId.c_str(), &clsid), S_OK);
            EXPECT_EQ(g_registryKey, progId + u"\\CLSID");
            const GUID plain = ClassOf(Kind::Plain);
            EXPECT_EQ(QVComIsEqualGUID(&clsid, &plain), 1);
        } else {
            EXPECT_EQ(QVComClassIDFromProgID(progId.c_str(), &clsid), E_INVALIDARG);
            EXPECT_EQ(g_registryKey, u"");
        }
    }
}

TEST_F(RegistrationTest, TheTextOfAProgIDIsReadWithinItsSize)
{
    const std::u16string filler(60, u'0');
    const struct
    {
        const char* what;
        std::string bytes;
        uint32_t claimed;
        QVRESULT result;
    } rows[] = {
        {"terminated", Bytes(kGuidText + std::u16string(1, 0)), 78, S_OK},
        {"not terminated", Bytes(kGuidText + filler), 76, S_OK},
        {"not terminated, full buffer", Bytes(kGuidText + filler), 78, S_OK},
        {"an odd size", Bytes(kGuidText + filler), 77, S_OK},
        {"cut inside the last unit", Bytes(kGuidText + filler), 75, E_INVALIDARG},
        {"a claim beyond the buffer", Bytes(kGuidText + filler), 0xFFFFFFFF, S_OK},
        {"no data", "", 0, E_INVALIDARG},
        {"one byte", "{", 1, E_INVALIDARG},
        {"something else", Bytes(filler), 78, E_INVALIDARG},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Answer(row.bytes, row.claimed);
        GUID clsid = {};
        EXPECT_EQ(QVComClassIDFromProgID(u"any", &clsid), row.result);
        EXPECT_EQ(m_capacity, 78u);
    }
}

TEST_F(RegistrationTest, ThePathOfALibraryIsReadWithinItsSize)
{
    const std::u16string longPath(300, u'p');
    const struct
    {
        const char* what;
        std::string bytes;
        uint32_t claimed;
        std::u16string loaded;
    } rows[] = {
        {"terminated", Bytes(std::u16string(u"/x/y\0junk", 9)), 10, u"/x/y"},
        {"not terminated", Bytes(u"/x/yjunk"), 8, u"/x/y"},
        {"an odd size", Bytes(u"/x/yjunk"), 9, u"/x/y"},
        {"a full buffer", Bytes(longPath), 520, longPath.substr(0, 260)},
        {"a claim beyond the buffer", Bytes(longPath), 600, longPath.substr(0, 260)},
        {"no data", "", 0, u""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Answer(row.bytes, row.claimed);
        const GUID clsid = ClassOf(Kind::Plain);
        void* object = &object;
        EXPECT_EQ(QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object), E_FAIL);
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(g_loadedPath, row.loaded);
        EXPECT_EQ(m_capacity, 520u);
    }
}

TEST_F(RegistrationTest, ReadFailuresOfAClassAreAllTheSameAndThoseOfANameAreNot)
{
    for (const QVRESULT failure : {QV_E_FILE_NOT_FOUND, E_FAIL, E_ACCESSDENIED, E_OUTOFMEMORY}) {
        g_registryResult = failure;
        const GUID clsid = ClassOf(Kind::Plain);
        void* object = nullptr;
        EXPECT_EQ(QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object), REGDB_E_CLASSNOTREG);
        const QVRESULT ofName = failure == QV_E_FILE_NOT_FOUND ? REGDB_E_CLASSNOTREG : failure;
        GUID read = {};
        EXPECT_EQ(QVComClassIDFromProgID(u"any", &read), ofName);
        EXPECT_EQ(QVComCreateObjectByProgID(u"any", nullptr, &QV_IID_UNKNOWN, &object), ofName);
    }
}

// With the real store.
TEST_F(RegistrationTest, ANameLeadsToAnObject)
{
    RegisterAllKinds();
    const std::u16string text = kGuidText;
    ASSERT_EQ(QVRegistrySetValue(QV_HKEY_CLASSES, u"Test.Plain\\CLSID", u"", QV_REGTYPE_STRING,
                                 text.c_str(), static_cast<uint32_t>(2 * text.size() + 2)),
              S_OK);
    void* object = nullptr;
    ASSERT_EQ(QVComCreateObjectByProgID(u"Test.Plain", nullptr, &QV_IID_UNKNOWN, &object), S_OK);
    static_cast<IQVUnknown*>(object)->Release();
    EXPECT_EQ(QVComCreateObjectByProgID(u"Test.Missing", nullptr, &QV_IID_UNKNOWN, &object),
              REGDB_E_CLASSNOTREG);
    const GUID missing = {0xDEAD, 0, 0, {}};
    EXPECT_EQ(QVComGetClassObject(&missing, &QV_IID_UNKNOWN, &object), REGDB_E_CLASSNOTREG);
}

} // namespace
