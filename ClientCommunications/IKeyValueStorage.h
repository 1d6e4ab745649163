#pragma once

#include "ClientCommunications/Interface.h"

#include <set>
#include <string>

namespace Ombry::ClientCommunications {

/// Blobs addressed by an arbitrary key, which maps to an entry name on the disk. A key never written reads as
/// an empty text. May be called from several threads at once. Seam inside: no installed function takes or
/// gives it.
class IKeyValueStorage : public Interface {
public:
    virtual std::string GetByKey(const std::string& key) = 0;
    virtual std::string GetEntry(const std::string& entryName) = 0;
    virtual void SetByKey(const std::string& key, const std::string& value) = 0;
    virtual void RemoveByKey(const std::string& key) = 0;
    virtual void RemoveEntry(const std::string& entryName) = 0;
    virtual std::set<std::string> getEntriesNames() = 0;
};

}  // namespace Ombry::ClientCommunications
