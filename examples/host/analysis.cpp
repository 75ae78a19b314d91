#include "analysis.h"

#include <qvcore6/result.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "charset.h"
#include "report.h"
#include "store.h"
#include "text_analyser.h"

namespace host
{

namespace
{

constexpr std::size_t kPieceBytes = std::size_t{256} * 1024;
constexpr int kCachedLookUps = 10000;

// Gives a counted interface back.
struct ReleaseInterface
{
    void operator()(IQVUnknown* object) const { object->Release(); }
};
using Analyser = std::unique_ptr<ITextAnalyser, ReleaseInterface>;

struct FreeBlock
{
    void operator()(char* block) const { QVComFree(block); }
};

QVRESULT LookUp(const TextClass& textClass)
{
    void* object = nullptr;
    const QVRESULT result = QVComGetClassObject(&textClass.clsid, &QV_IID_CLASS_FACTORY, &object);
    if (result >= 0) {
        static_cast<IQVUnknown*>(object)->Release();
    }
    return result;
}

double MicrosecondsSince(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
        .count();
}

QVRESULT Create(const TextClass& textClass, Analyser& analyser)
{
    void* object = nullptr;
    const QVRESULT result =
        textClass.byGuid ? QVComCreateObject(&textClass.clsid, nullptr, &IID_TextAnalyser, &object)
                         : QVComCreateObjectByProgID(textClass.progId.c_str(), nullptr,
                                                     &IID_TextAnalyser, &object);
    if (result >= 0) {
        analyser.reset(static_cast<ITextAnalyser*>(object));
    }
    return result;
}

// An object of one class at work on one file.
struct Worker
{
    std::string name;
    Analyser analyser;
    QVRESULT result = S_OK;
};

std::vector<Worker> MakeWorkers(const std::vector<TextClass>& classes)
{
    std::vector<Worker> workers;
    for (const TextClass& textClass : classes) {
        Worker worker;
        worker.name = Narrow(textClass.progId);
        worker.result = Create(textClass, worker.analyser);
        workers.push_back(std::move(worker));
    }
    return workers;
}

void Feed(const std::string& text, std::vector<Worker>& workers)
{
    for (Worker& worker : workers) {
        if (worker.result >= 0 && !text.empty()) {
            worker.result = worker.analyser->Feed(text.data(), static_cast<uint32_t>(text.size()));
        }
    }
}

// Reads in pieces: a file may be larger than memory. The first one tells the charset.
QVRESULT FeedFile(const Handle& file, const std::u16string& told, std::vector<Worker>& workers,
                  Charset& charset)
{
    std::vector<char> piece(kPieceBytes);
    QVRESULT result = ReadFull(file, piece);
    charset = FindCharset(told, piece, piece.size() < kPieceBytes);
    Utf8Stream stream(charset.name);
    std::size_t skipped = charset.mark;
    while (result >= 0 && !piece.empty()) {
        Feed(stream.Convert(piece.data() + skipped, piece.size() - skipped), workers);
        skipped = 0;
        piece.resize(kPieceBytes);
        result = ReadFull(file, piece);
    }
    Feed(stream.End(), workers);
    return result;
}

void AddFindings(const std::string& file, Worker& worker, FileReport& report)
{
    if (worker.result >= 0) {
        char* rows = nullptr;
        worker.result = worker.analyser->Report(&rows);
        const std::unique_ptr<char, FreeBlock> block(rows);
        if (worker.result >= 0 && rows != nullptr) {
            report.text += "  " + worker.name + "\n" + Rows(4, rows);
            return;
        }
    }
    report.problems.push_back(file + ": " + worker.name + " failed: " + InWords(worker.result));
}

std::string WhyUnusable(const GUID& clsid, QVRESULT result)
{
    if (result == REGDB_E_CLASSNOTREG || result == E_OUTOFMEMORY) {
        return InWords(result);
    }
    const std::filesystem::path library = LibraryOf(clsid);
    if (library.empty()) {
        return InWords(result);
    }
    std::error_code error;
    if (library.has_parent_path() && !std::filesystem::exists(library, error)) {
        return "its library " + library.string() + " is missing";
    }
    if (result == E_ACCESSDENIED) {
        return "its library " + library.string() + " may not be read";
    }
    return "its library " + library.string() + " is no component for this machine (" +
           InWords(result) + ")";
}

} // namespace

bool Introduce(TextClass& textClass)
{
    const std::string name = Narrow(textClass.progId);
    const QVRESULT found = QVComClassIDFromProgID(textClass.progId.c_str(), &textClass.clsid);
    if (found < 0) {
        PrintProblem("class " + name + " cannot be used: " +
                     (found == E_FAIL ? "this is no name of a class" : InWords(found)));
        return false;
    }
    const auto begin = std::chrono::steady_clock::now();
    const QVRESULT result = LookUp(textClass);
    const double first = MicrosecondsSince(begin);
    if (result < 0) {
        PrintProblem("class " + name + " cannot be used: " + WhyUnusable(textClass.clsid, result));
        return false;
    }
    const auto again = std::chrono::steady_clock::now();
    for (int i = 0; i < kCachedLookUps; ++i) {
        LookUp(textClass);
    }
    const double cached = MicrosecondsSince(again) / kCachedLookUps;
    std::printf("  %s\n", Shown(name).c_str());
    PrintRow(4, "class", GuidText(textClass.clsid));
    PrintRow(4, "created by", textClass.byGuid ? "GUID" : "name");
    PrintRow(4, "first look-up", Microseconds(first) + "  (registry, loader, component)");
    PrintRow(4, "cached look-up", Microseconds(cached));
    return true;
}

FileReport Analyse(const TextFile& file, const std::vector<TextClass>& classes)
{
    Handle handle;
    const QVRESULT opened = Open(file, handle);
    if (opened < 0) {
        return {"", {file.name + ": cannot be opened: " + InWords(opened)}};
    }
    std::vector<Worker> workers = MakeWorkers(classes);
    Charset charset;
    const QVRESULT read = FeedFile(handle, file.charset, workers, charset);
    if (read < 0) {
        return {"", {file.name + ": cannot be read to its end: " + InWords(read)}};
    }
    FileReport report;
    report.text = "\n" + Shown(file.name) + "\n" +
                  Row(2, "charset", Shown(Narrow(charset.name)) + " (" + charset.reason + ")");
    for (Worker& worker : workers) {
        AddFindings(file.name, worker, report);
    }
    return report;
}

} // namespace host
