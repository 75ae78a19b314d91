#include "registry_tree.h"

#include <cstdlib>
#include <filesystem>
#include <random>

namespace bench
{

namespace
{

namespace fs = std::filesystem;

std::string MakeFolder(const char* parent)
{
    std::string path = std::string(parent) + "/qvcore6-bench-XXXXXX";
    return mkdtemp(path.data()) != nullptr ? path : std::string();
}

} // namespace

std::u16string Wide(const std::string& text)
{
    return {text.begin(), text.end()};
}

std::string SubKeyName(int i)
{
    return "A sub-key with a name, " + std::to_string(i);
}

Place MakePlace(const std::string& top, int key, int value)
{
    Place place{{top, "Vendor", "Product" + std::to_string(key / 100),
                 "Settings" + std::to_string(key % 100)},
                {},
                "Value" + std::to_string(value),
                {}};
    place.path = Wide(place.names[0] + "\\" + place.names[1] + "\\" + place.names[2] + "\\" +
                      place.names[3]);
    place.wideValue = Wide(place.value);
    return place;
}

std::vector<Place> RandomPlaces(const Tree& tree, std::size_t count)
{
    std::mt19937 random(1);
    std::uniform_int_distribution<int> key(0, tree.keys - 1);
    std::uniform_int_distribution<int> value(0, tree.values - 1);
    std::vector<Place> places;
    for (std::size_t i = 0; i < count; ++i) {
        places.push_back(MakePlace(tree.top, key(random), value(random)));
    }
    return places;
}

Folders::Folders()
    : m_disk(MakeFolder(fs::current_path().c_str())), m_memory(MakeFolder("/dev/shm"))
{
    if (!m_memory.empty()) {
        fs::create_directory(m_memory + "/machine");
        fs::create_symlink(m_memory + "/machine", m_disk + "/machine");
    }
    setenv("QVCORE6_STATE_DIR", m_disk.c_str(), 1);
}

Folders::~Folders()
{
    std::error_code ignored;
    fs::remove_all(m_disk, ignored);
    if (!m_memory.empty()) {
        fs::remove_all(m_memory, ignored);
    }
}

const Folders& TheFolders()
{
    static const Folders folders;
    return folders;
}

} // namespace bench
