// Stores damaged in their middle: they are refused, or used without harm, never a crash.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

#include "platform/store_fixture.h"

using namespace qv::platform;
using namespace qv::test;

namespace
{

constexpr std::size_t kPage = 4096;

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

class RegistryDamage : public StoreTest
{
protected:
    using Random = std::mt19937;

    // Keys and values come and go, small and large.
    static void Use(Random& random, int changes)
    {
        Key key;
        ASSERT_EQ(key.Create(kUserRoot, u"k"), 0);
        for (int i = 0; i < changes; ++i) {
            const WCHAR name[] = {static_cast<WCHAR>(0x4E00 + random() % 200), 0};
            const std::size_t size = random() % (random() % 8 == 0 ? 30000 : 200);
            const std::string data(size, static_cast<char>(random()));
            const LONG error = random() % 3 == 0
                                   ? RegDeleteValueW(key.Get(), name)
                                   : RegSetValueExW(key.Get(), name, 0, REG_BINARY, data.data(),
                                                    static_cast<DWORD>(size));
            ASSERT_TRUE(error == 0 || error == 2) << error;
            const std::u16string path = std::u16string(u"k\\") + name;
            ASSERT_EQ(SetNumber(path.c_str(), 1), 0);
            if (random() % 2 == 0) {
                ASSERT_EQ(RegDeleteKeyExW(key.Get(), name, 0, 0), 0);
            }
        }
    }

    // Everything that a program may do with a store. 1015 at the first call counts as 1.
    static int UseDamaged()
    {
        Key key;
        const LONG opened = key.Create(kUserRoot, u"k");
        if (opened != 0) {
            return opened == 1015 ? 1 : 2;
        }
        std::vector<char> data(30000);
        WCHAR name[300];
        for (DWORD i = 0; i < 300; ++i) {
            DWORD units = 300;
            auto size = static_cast<DWORD>(data.size());
            RegEnumValueW(key.Get(), i, name, &units, nullptr, nullptr, data.data(), &size);
            units = 300;
            RegEnumKeyExW(key.Get(), i, name, &units, nullptr, nullptr, nullptr, nullptr);
        }
        for (WCHAR i = 0x4E00; i < 0x4E00 + 200; ++i) {
            const WCHAR one[] = {i, 0};
            RegSetValueExW(key.Get(), one, 0, REG_BINARY, data.data(), i * 7 % 5000);
            RegDeleteKeyExW(key.Get(), one, 0, 0);
            if (i % 2 == 0) {
                RegDeleteValueW(key.Get(), one);
            }
        }
        return 0;
    }
};

TEST_F(RegistryDamage, NoDamageEndsTheProcess)
{
    Random random(static_cast<unsigned>(std::atoi(getenv("SEED") ? getenv("SEED") : "1")));
    Use(random, 600);
    CloseRegistryStores();
    const std::string whole = ReadFile(DataFile());
    const std::size_t pages = whole.size() / kPage;
    int results[3] = {};
    const int rounds = std::atoi(getenv("ROUNDS") ? getenv("ROUNDS") : "200");
    for (int round = 0; round < rounds; ++round) {
        std::string bytes = whole;
        const std::size_t page = random() % pages * kPage;
        const std::size_t at = page + (random() % 2 == 0 ? random() % 24 : random() % kPage);
        const unsigned kind = random() % 4;
        switch (kind) {
        case 0: // one bit
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << random() % 8);
            break;
        case 1: // some bytes
            for (std::size_t i = 0; i < 1 + random() % 16; ++i) {
                bytes[page + random() % kPage] = static_cast<char>(random());
            }
            break;
        case 2: // a sector or a page of zeros
            bytes.replace(page, random() % 2 == 0 ? 512 : kPage, random() % 2 == 0 ? 512 : kPage, '\0');
            bytes.resize(whole.size());
            break;
        default: // another page in its place
            bytes.replace(page, kPage, whole, random() % pages * kPage, kPage);
            break;
        }
        WriteFile(DataFile(), bytes);
        const int result = InChild(&UseDamaged);
        if (result < 0 || result > 1) std::printf("round %d kind %u page %zu at %zu result %d\n", round, kind, page / kPage, at % kPage, result);
        ++results[result < 0 ? 2 : result];
        EXPECT_TRUE(result == 0 || result == 1) << round;
    }
    std::printf("ok %d refused %d bad %d\n", results[0], results[1], results[2]);
    WriteFile(DataFile(), whole);
    EXPECT_EQ(InChild(&UseDamaged), 0);
}

} // namespace
