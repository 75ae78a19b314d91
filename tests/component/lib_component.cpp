// A component with one class of each kind. It tells the test program what happens to it.
#include <qvcore6/result.h>

#include <atomic>

#include "component/test_classes.h"

using namespace qv::test;

namespace
{

// Its type information lies in this library: whoever handles it must do so before the unload.
struct OwnFailure
{
    virtual ~OwnFailure() = default;
};

bool IsKnown(const GUID* iid)
{
    return QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) || QVComIsEqualGUID(iid, &QV_IID_CLASS_FACTORY);
}

class ClassObject final : public IQVClassFactory
{
public:
    explicit ClassObject(Kind kind) : m_kind(kind) { TestJournal("make", kind); }
    ~ClassObject() { TestJournal("end", m_kind); }

    QVRESULT QueryInterface(const GUID* iid, void** objectOut) override
    {
        *objectOut = nullptr;
        TestJournal("query", m_kind);
        TestHook("query", m_kind);
        if (!IsKnown(iid)) {
            return kNoInterface;
        }
        AddRef();
        *objectOut = this;
        return S_OK;
    }

    uint32_t AddRef() override { return ++m_references; }

    uint32_t Release() override
    {
        TestHook("release", m_kind);
        const uint32_t left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    QVRESULT CreateInstance(IQVUnknown* outer, const GUID* iid, void** objectOut) override
    {
        TestJournal(outer != nullptr ? "create inside" : "create", m_kind);
        return QueryInterface(iid, objectOut); // any object will do
    }

private:
    Kind m_kind;
    std::atomic<uint32_t> m_references{1};
};

[[gnu::constructor]] void OnLoad()
{
    TestJournal("load", Kind::None);
}

[[gnu::destructor]] void OnUnload()
{
    TestJournal("unload", Kind::None);
}

} // namespace

extern "C" QV_EXPORT QVRESULT DllGetClassObject(const GUID* clsid, const GUID* iid,
                                                void** objectOut)
{
    const Kind kind = static_cast<Kind>(clsid->Data4[7]);
    *objectOut = nullptr;
    TestHook("get", kind);
    if (kind == Kind::Throws) {
        throw OwnFailure();
    }
    if (kind == Kind::Fails || kind == Kind::Null) {
        return kind == Kind::Null ? S_OK : kForeignFailure;
    }
    if (!IsKnown(iid)) {
        return kNoInterface;
    }
    *objectOut = new ClassObject(kind);
    return S_OK;
}
