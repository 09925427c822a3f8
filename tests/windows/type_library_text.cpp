#include "tests/windows/type_library_text.h"

#include <set>
#include <stdexcept>

#include "tests/support/test_directory.h"

namespace quorvane::test {

namespace {

// The system gives the names of a function's parameters by identifier, and so those of a property's first
// function for both of them.
constexpr char kNewValueName[] = "newVal";

std::string TextOf(const GUID& id)
{
    OLECHAR text[39];
    StringFromGUID2(id, text, 39);
    return Narrow(text);
}

// One type and its attributes.
class Type {
public:
    explicit Type(ComPtr<ITypeInfo> info) : info_(std::move(info))
    {
        Check(info_->GetTypeAttr(&attributes_), "GetTypeAttr");
    }
    Type(const Type&) = delete;
    Type& operator=(const Type&) = delete;
    ~Type() { info_->ReleaseTypeAttr(attributes_); }

    ITypeInfo& Info() const noexcept { return *info_; }
    const TYPEATTR& Attributes() const noexcept { return *attributes_; }
    bool Has(WORD flag) const noexcept { return (attributes_->wTypeFlags & flag) != 0; }

    std::string Name(MEMBERID member = MEMBERID_NIL) const
    {
        Bstr name;
        Check(info_->GetDocumentation(member, name.Put(), nullptr, nullptr, nullptr), "GetDocumentation");
        return Narrow(name.View());
    }
    std::string Help(MEMBERID member) const
    {
        Bstr help;
        Check(info_->GetDocumentation(member, nullptr, help.Put(), nullptr, nullptr), "GetDocumentation");
        return Narrow(help.View());
    }
    ComPtr<ITypeInfo> Referred(HREFTYPE reference) const
    {
        ComPtr<ITypeInfo> info;
        Check(info_->GetRefTypeInfo(reference, info.Put()), "GetRefTypeInfo");
        return info;
    }
    ComPtr<ITypeInfo> Implemented(UINT index) const
    {
        HREFTYPE reference = 0;
        Check(info_->GetRefTypeOfImplType(index, &reference), "GetRefTypeOfImplType");
        return Referred(reference);
    }

private:
    ComPtr<ITypeInfo> info_;
    TYPEATTR* attributes_ = nullptr;
};

std::string TextOf(const TYPEDESC& type, const Type& owner)
{
    switch (type.vt) {
        case VT_PTR:
            return TextOf(*type.lptdesc, owner) + "*";
        case VT_SAFEARRAY:
            return "SAFEARRAY(" + TextOf(*type.lptdesc, owner) + ")";
        case VT_USERDEFINED:
            return Type(owner.Referred(type.hreftype)).Name();
        case VT_I4:
            return "long";
        case VT_UI4:
            return "ulong";
        case VT_BOOL:
            return "VARIANT_BOOL";
        case VT_BSTR:
            return "BSTR";
        case VT_VARIANT:
            return "VARIANT";
        case VT_UNKNOWN:
            return "IUnknown*";
        case VT_DISPATCH:
            return "IDispatch*";
        default:
            return "type " + std::to_string(type.vt);
    }
}

std::string DefaultOf(const PARAMDESC& parameter)
{
    const VARIANT& value = parameter.pparamdescex->varDefaultValue;
    if (value.vt == VT_BOOL)
        return std::to_string(value.boolVal);
    return "of type " + std::to_string(value.vt);
}

std::string MarkOf(const PARAMDESC& parameter)
{
    switch (parameter.wParamFlags) {
        case PARAMFLAG_FIN:
            return "";
        case PARAMFLAG_FIN | PARAMFLAG_FOPT:
            return "[optional] ";
        case PARAMFLAG_FIN | PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT:
            return "[optional, default " + DefaultOf(parameter) + "] ";
        case PARAMFLAG_FIN | PARAMFLAG_FOUT:
            return "[in,out] ";
        case PARAMFLAG_FOUT | PARAMFLAG_FRETVAL:
            return "[out,retval] ";
        default:
            return "[flags " + std::to_string(parameter.wParamFlags) + "] ";
    }
}

std::string TextOf(INVOKEKIND kind)
{
    switch (kind) {
        case INVOKE_FUNC:
            return "method";
        case INVOKE_PROPERTYGET:
            return "get";
        case INVOKE_PROPERTYPUT:
            return "put";
        default:
            return "kind " + std::to_string(kind);
    }
}

std::vector<std::string> ParameterNames(const Type& type, const FUNCDESC& function)
{
    constexpr UINT kMost = 16;
    BSTR names[kMost]{};
    UINT count = 0;
    Check(type.Info().GetNames(function.memid, names, kMost, &count), "GetNames");
    std::vector<std::string> result(static_cast<size_t>(function.cParams));
    for (UINT i = 0; i < count; ++i) {
        const Bstr name = Bstr::Attach(names[i]);
        if (i > 0 && i <= result.size())
            result[i - 1] = Narrow(name.View());
    }
    if (function.invkind == INVOKE_PROPERTYPUT && !result.empty())
        result.back() = kNewValueName;
    return result;
}

// In a vtable half the place in the vtable is told; in a dispatch-only interface there is none.
std::string TextOf(const Type& type, const FUNCDESC& function)
{
    std::string line;
    if (function.funckind == FUNC_PUREVIRTUAL)
        line = "slot " + std::to_string(static_cast<size_t>(function.oVft) / sizeof(void*)) + " ";
    line += "id " + std::to_string(function.memid) + " " + TextOf(function.invkind) + " " +
            type.Name(function.memid) + "(";
    const std::vector<std::string> names = ParameterNames(type, function);
    for (size_t i = 0; i < names.size(); ++i) {
        const ELEMDESC& parameter = function.lprgelemdescParam[i];
        line += (i > 0 ? ", " : "") + MarkOf(parameter.paramdesc) + TextOf(parameter.tdesc, type) + " " +
                names[i];
    }
    line += ")";
    if (function.elemdescFunc.tdesc.vt != VT_HRESULT)
        line += " returns " + TextOf(function.elemdescFunc.tdesc, type);
    if (function.callconv != CC_STDCALL)
        line += " convention " + std::to_string(function.callconv);
    if (function.wFuncFlags != 0)
        line += " flags " + std::to_string(function.wFuncFlags);
    const std::string help = type.Help(function.memid);
    return help.empty() ? line : line + " \"" + help + "\"";
}

std::vector<std::string> FunctionsOf(const Type& type)
{
    std::vector<std::string> lines;
    for (UINT i = 0; i < type.Attributes().cFuncs; ++i) {
        FUNCDESC* function = nullptr;
        Check(type.Info().GetFuncDesc(i, &function), "GetFuncDesc");
        lines.push_back(TextOf(type, *function));
        type.Info().ReleaseFuncDesc(function);
    }
    return lines;
}

std::vector<std::string> ValuesOf(const Type& type)
{
    std::vector<std::string> lines;
    for (UINT i = 0; i < type.Attributes().cVars; ++i) {
        VARDESC* value = nullptr;
        Check(type.Info().GetVarDesc(i, &value), "GetVarDesc");
        lines.push_back(std::to_string(value->lpvarValue->lVal) + " " + type.Name(value->memid));
        type.Info().ReleaseVarDesc(value);
    }
    return lines;
}

std::string HeaderOfClass(const Type& type)
{
    constexpr INT kSource = IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE;
    std::string line = "class " + type.Name() + " " + TextOf(type.Attributes().guid);
    for (UINT i = 0; i < type.Attributes().cImplTypes; ++i) {
        INT flags = 0;
        Check(type.Info().GetImplTypeFlags(i, &flags), "GetImplTypeFlags");
        const std::string role = flags == IMPLTYPEFLAG_FDEFAULT ? "default"
                                 : flags == kSource             ? "source"
                                                                : "flags " + std::to_string(flags);
        line += " " + role + " " + Type(type.Implemented(i)).Name();
    }
    const WORD others = type.Attributes().wTypeFlags & ~TYPEFLAG_FCANCREATE;
    if (others != 0)
        line += " flags " + std::to_string(others);
    return line + (type.Has(TYPEFLAG_FCANCREATE) ? " creatable" : "");
}

// A dual interface is a dispatch interface with a vtable half.
void AddInterface(const Type& type, const std::set<std::string>& sources, Blocks& blocks)
{
    const std::string rest = " " + type.Name() + " " + TextOf(type.Attributes().guid);
    if (!type.Has(TYPEFLAG_FDUAL)) {
        blocks[(sources.contains(type.Name()) ? "source" : "callback") + rest] = FunctionsOf(type);
        return;
    }
    constexpr UINT kVtableHalf = static_cast<UINT>(-1);
    constexpr WORD kAutomation = TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE;
    const Type half(type.Implemented(kVtableHalf));
    const bool isAutomation = half.Attributes().wTypeFlags == kAutomation;
    const std::string base = Type(half.Implemented(0)).Name();
    blocks[(isAutomation && base == "IDispatch" ? "dual" : "no automation") + rest] = FunctionsOf(half);
}

std::string HeaderOf(ITypeLib& library)
{
    Bstr name;
    Bstr help;
    Check(library.GetDocumentation(MEMBERID_NIL, name.Put(), help.Put(), nullptr, nullptr),
          "GetDocumentation");
    TLIBATTR* attributes = nullptr;
    Check(library.GetLibAttr(&attributes), "GetLibAttr");
    std::string line = "library " + Narrow(name.View()) + " " + TextOf(attributes->guid) + " version " +
                       std::to_string(attributes->wMajorVerNum) + "." +
                       std::to_string(attributes->wMinorVerNum) + " locale " +
                       std::to_string(attributes->lcid) + " \"" + Narrow(help.View()) + "\"";
    library.ReleaseTLibAttr(attributes);
    return line;
}

ComPtr<ITypeInfo> TypeAt(ITypeLib& library, UINT index)
{
    ComPtr<ITypeInfo> info;
    Check(library.GetTypeInfo(index, info.Put()), "GetTypeInfo");
    return info;
}

// The interfaces that classes fire.
std::set<std::string> SourcesOf(ITypeLib& library)
{
    std::set<std::string> names;
    for (UINT i = 0; i < library.GetTypeInfoCount(); ++i) {
        const Type type(TypeAt(library, i));
        for (UINT k = 0; type.Attributes().typekind == TKIND_COCLASS && k < type.Attributes().cImplTypes;
             ++k) {
            INT flags = 0;
            Check(type.Info().GetImplTypeFlags(k, &flags), "GetImplTypeFlags");
            if (flags & IMPLTYPEFLAG_FSOURCE)
                names.insert(Type(type.Implemented(k)).Name());
        }
    }
    return names;
}

}  // namespace

Blocks TextOf(ITypeLib& library)
{
    const std::set<std::string> sources = SourcesOf(library);
    Blocks blocks{{HeaderOf(library), {}}};
    for (UINT i = 0; i < library.GetTypeInfoCount(); ++i) {
        const Type type(TypeAt(library, i));
        switch (type.Attributes().typekind) {
            case TKIND_ENUM:
                blocks["enum " + type.Name()] = ValuesOf(type);
                break;
            case TKIND_DISPATCH:
                AddInterface(type, sources, blocks);
                break;
            case TKIND_COCLASS:
                blocks[HeaderOfClass(type)];
                break;
            default:
                blocks["kind " + std::to_string(type.Attributes().typekind) + " " + type.Name()];
                break;
        }
    }
    return blocks;
}

}  // namespace quorvane::test
