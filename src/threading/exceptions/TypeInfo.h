#pragma once

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

// A std::type_info usable as an ordered map key: ordering is
// std::type_info::before, equality the equality of the type infos
// (so two names of one type compare equal).
//
// The null check stays in release builds: a null TypeInfo would otherwise be
// dereferenced in the middle of reporting an error. It prints the classic
// "file:line: failed assertion `expr'" form and aborts.

#define BV_TYPEINFO_ASSERT(expr)                                                                   \
    ((expr) ? void(0)                                                                              \
            : (std::fprintf(                                                                       \
                   stderr, "%s:%u: failed assertion `%s'\n", __FILE__, unsigned(__LINE__), #expr), \
                std::abort()))

class TypeInfo
{
public:
    TypeInfo() = default;
    TypeInfo(const std::type_info &info)
        : pInfo_(&info)
    { }

    const std::type_info &get() const { return checked(); }
    const char *name() const { return checked().name(); }

    bool before(const TypeInfo &other) const { return checked().before(other.checked()); }

    friend bool operator<(const TypeInfo &a, const TypeInfo &b) { return a.before(b); }
    friend bool operator==(const TypeInfo &a, const TypeInfo &b)
    {
        return a.checked() == b.checked();
    }
    friend bool operator!=(const TypeInfo &a, const TypeInfo &b) { return !(a == b); }

private:
    // Every access funnels through here so that the failure always names one place.
    const std::type_info &checked() const
    {
        BV_TYPEINFO_ASSERT(pInfo_);
        return *pInfo_;
    }

    const std::type_info *pInfo_ = nullptr;
};
