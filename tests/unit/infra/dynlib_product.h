#pragma once

namespace DynlibTest
{

/// What the test libraries make.
class Product
{
public:
    virtual ~Product() = default;
    virtual int answer() const = 0;
};

}  // namespace DynlibTest
