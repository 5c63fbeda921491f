#pragma once

#include <cstdio>
#include <cstdlib>
#include <typeinfo>

// A std::type_info usable as an ordered map key. The null check stays in release
// builds and prints "file:line: failed assertion `expr'"; keep its line stable.

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
    // Every access funnels through here, so a failure always names one place.
    const std::type_info &checked() const
    {
        BV_TYPEINFO_ASSERT(pInfo_);
        return *pInfo_;
    }

    const std::type_info *pInfo_ = nullptr;
};
