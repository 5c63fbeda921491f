#pragma once

// The safe-bool idiom: a class T derived from CSafeBool<T> and defining
// `bool booleanTest() const` converts to a boolean in conditions, but not to
// integers, and two such objects cannot be compared.
class CSafeBoolBase
{
protected:
    typedef void (CSafeBoolBase::*bool_type)() const;
    void this_type_does_not_support_comparisons() const { }

    CSafeBoolBase() = default;
    CSafeBoolBase(const CSafeBoolBase &) = default;
    CSafeBoolBase &operator=(const CSafeBoolBase &) = default;
    ~CSafeBoolBase() = default;
};

template<typename T> class CSafeBool : public CSafeBoolBase
{
public:
    operator bool_type() const
    {
        return static_cast<const T *>(this)->booleanTest()
            ? &CSafeBool::this_type_does_not_support_comparisons
            : nullptr;
    }

protected:
    ~CSafeBool() = default;
};

// Comparing two safe-bool objects names a private member and fails to compile.
template<typename T, typename U> bool operator==(const CSafeBool<T> &lhs, const CSafeBool<U> &)
{
    lhs.this_type_does_not_support_comparisons();
    return false;
}

template<typename T, typename U> bool operator!=(const CSafeBool<T> &lhs, const CSafeBool<U> &)
{
    lhs.this_type_does_not_support_comparisons();
    return false;
}

// Counts attempts of an operation that may be retried a limited number of times:
//   for (CRetryCounter retry(3); retry; retry.next()) { if (tryIt()) break; }
class CRetryCounter : public CSafeBool<CRetryCounter>
{
public:
    explicit CRetryCounter(int maxAttempts)
        : m_Max(maxAttempts)
    { }
    virtual ~CRetryCounter();

    // True while attempts are left.
    bool booleanTest() const { return m_Done < m_Max; }
    void next() { ++m_Done; }
    int attempts() const { return m_Done; }
    int remaining() const { return m_Done < m_Max ? m_Max - m_Done : 0; }
    void reset() { m_Done = 0; }

private:
    int m_Max;
    int m_Done = 0;
};
