// The trees that the registry and its peer are filled with, and where these lie.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench
{

inline constexpr int kKeys = 10000;
inline constexpr int kManyValues = 100; // in each key of the large tree: 1,000,000 altogether
inline constexpr std::size_t kDataSize = 40;

struct Place
{
    std::string names[4];
    std::u16string path;
    std::string value;
    std::u16string wideValue;
};

struct Tree
{
    const char* top;
    int keys;
    int values;
    bool onDisk;
};

inline constexpr Tree kSmall = {"Software", kKeys, 1, false};
inline constexpr Tree kLarge = {"System", kKeys, kManyValues, false};
inline constexpr Tree kOnDisk = {"Disk", kKeys, 1, true};

std::u16string Wide(const std::string& text);
std::string SubKeyName(int i);

// Four components, 100 keys below each of 100 others.
Place MakePlace(const std::string& top, int key, int value);

// In an order that no cache of a few entries follows.
std::vector<Place> RandomPlaces(const Tree& tree, std::size_t count);

// The stores' folder on disk; its machine part lies in memory, where there is a folder for that.
// Made before the first call of the library: later the stores are open.
class Folders
{
public:
    Folders();
    ~Folders();
    Folders(const Folders&) = delete;
    Folders& operator=(const Folders&) = delete;

    const std::string& Disk() const { return m_disk; }
    const std::string& Memory() const { return m_memory.empty() ? m_disk : m_memory; }
    bool HasMemory() const { return !m_memory.empty(); }

private:
    std::string m_disk;
    std::string m_memory;
};

const Folders& TheFolders();

} // namespace bench
