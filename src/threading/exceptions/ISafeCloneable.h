#pragma once

// An object that can hand out a heap copy of itself without throwing:
// clone() answers null when no memory could be had.
class ISafeCloneable
{
public:
    virtual ~ISafeCloneable() = default;
    virtual ISafeCloneable *clone() const = 0;
};
