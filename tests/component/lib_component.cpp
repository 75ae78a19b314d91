// A component with one class of each kind. It tells the test program what happens to it.
#include <qvcore6/result.h>

#include <atomic>
#include <new>

#include "component/test_classes.h"

using namespace qv::test;

namespace
{

// Its type information lies in this library: whoever handles it must do so before the unload.
struct OwnFailure
{
    virtual ~OwnFailure() = default;
};

void LookUp(Kind kind)
{
    const GUID clsid = ClassOf(kind);
    void* object = nullptr;
    if (QVComGetClassObject(&clsid, &QV_IID_UNKNOWN, &object) >= 0) {
        static_cast<IQVUnknown*>(object)->Release();
    } else {
        TestJournal("refused", static_cast<int>(kind));
    }
}

class ClassObject final : public IQVClassFactory
{
public:
    explicit ClassObject(Kind kind) : m_kind(kind) { Tell("make"); }
    ~ClassObject() { Tell("end"); }

    QVRESULT QueryInterface(const GUID* iid, void** objectOut) override
    {
        *objectOut = nullptr;
        Tell("query");
        if (m_kind == Kind::QueryThrows) {
            throw OwnFailure();
        }
        if (m_kind == Kind::Flushes) {
            QVComFlushFactoryCache();
        }
        if (!QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) &&
            !QVComIsEqualGUID(iid, &QV_IID_CLASS_FACTORY)) {
            return kNoInterface;
        }
        AddRef();
        *objectOut = this;
        return S_OK;
    }

    uint32_t AddRef() override { return ++m_references; }

    uint32_t Release() override
    {
        if (m_kind == Kind::ReleaseAsks && !m_inRelease) {
            m_inRelease = true;
            LookUp(Kind::Plain);
            m_inRelease = false;
        }
        const uint32_t left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    QVRESULT CreateInstance(IQVUnknown* outer, const GUID* iid, void** objectOut) override
    {
        if (m_kind == Kind::CreateThrows) {
            throw OwnFailure();
        }
        if (m_kind == Kind::CreateFails) {
            return kForeignFailure;
        }
        Tell(outer != nullptr ? "create inside" : "create");
        return QueryInterface(iid, objectOut); // any object will do
    }

private:
    void Tell(const char* event) { TestJournal(event, static_cast<int>(m_kind)); }

    Kind m_kind;
    bool m_inRelease = false;
    std::atomic<uint32_t> m_references{1};
};

[[gnu::constructor]] void OnLoad()
{
    TestJournal("load", -1);
}

[[gnu::destructor]] void OnUnload()
{
    TestJournal("unload", -1);
}

bool g_askedForItself = false;

void BeforeClassObject(Kind kind)
{
    switch (kind) {
    case Kind::Throws:
        throw OwnFailure();
    case Kind::ThrowsBadAlloc:
        throw std::bad_alloc();
    case Kind::AsksForPlain:
        LookUp(Kind::Plain);
        break;
    case Kind::AsksForItself:
        if (!g_askedForItself) {
            g_askedForItself = true;
            LookUp(Kind::AsksForItself);
        }
        break;
    case Kind::Waits:
        TestWait();
        break;
    default:
        break;
    }
}

} // namespace

extern "C" QV_EXPORT QVRESULT DllGetClassObject(const GUID* clsid, const GUID* iid,
                                                void** objectOut)
{
    const Kind kind = static_cast<Kind>(clsid->Data4[7]);
    *objectOut = nullptr;
    BeforeClassObject(kind);
    if (kind == Kind::Fails) {
        return kForeignFailure;
    }
    if (kind == Kind::Null) {
        return S_OK;
    }
    auto* const made = new ClassObject(kind);
    if (!QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) && !QVComIsEqualGUID(iid, &QV_IID_CLASS_FACTORY)) {
        made->Release();
        return kNoInterface;
    }
    *objectOut = made;
    return S_OK;
}
