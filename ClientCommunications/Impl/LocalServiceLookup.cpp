#include "ClientCommunications/Impl/LocalServiceLookup.h"

#include "ClientCommunications/LocalConfiguration.h"
#include "ObjectMapping/Serialization.h"

namespace Ombry::ClientCommunications {

std::string LocalServiceLookup::Lookup(const std::string& name) {
    LocalServiceStorageDto record;
    ObjectMapping::DeserializeObject(record, storage->Get(name)->Load(), nullptr, true);
    return record.guid;
}

}  // namespace Ombry::ClientCommunications
