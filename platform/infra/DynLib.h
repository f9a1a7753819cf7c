#pragma once

#include <memory>
#include <string>

#include "infra/Handle.h"

namespace Quorvex
{

/// An opened dynamic library, closed with its last handle. The operations may be called on any thread.
class DynLib
{
public:
    /// Opens a library: a path, or a name that is looked for in the folders of addSearchFolder() and then by
    /// the system's rule. Null when it cannot be opened; `out_strError` then says why.
    static TSHandle<DynLib> open(const std::string& in_strName, std::string& out_strError);

    /// Also looks for libraries in this folder from now on.
    static void addSearchFolder(const std::string& in_strFolder);

    DynLib(const DynLib&) = delete;
    DynLib& operator=(const DynLib&) = delete;
    ~DynLib();

    /// The address of an exported symbol, or null.
    void* symbol(const std::string& in_strName) const;
    const std::string& getName() const { return m_strName; }

private:
    struct Impl;
    DynLib(std::string in_strName, std::unique_ptr<Impl> in_pImpl);

    const std::string m_strName;
    const std::unique_ptr<Impl> m_pImpl;
};

}  // namespace Quorvex
