// SPDX-License-Identifier: MIT
#pragma once

#include "opcua/stack.hpp"
#include "orvik/pushinterface/tag.hpp"

#include <cstdint>
#include <string>

namespace PullappOpcUa {

enum class IdentifierType : std::int32_t { Numeric = 0, String = 1, Guid = 2 };

/// A variable of an OPC UA server; the identifier's type says which of the identifiers is used.
class Tag : public Orvik::PushInterface::Tag {
  public:
    /**
     * Reads the address into the fields below: two parts in either order, separated by ";". One is
     * "ns=" with the namespace index, the other "i=" with a number, "s=" with a text, or "g=" with
     * a GUID.
     *
     * @return empty if the address is usable, else what is wrong with it
     */
    [[nodiscard]] std::string parseAddress();

    IdentifierType identifierType = IdentifierType::Numeric;
    std::uint32_t namespaceIndex = 0;  ///< only the low 16 bits reach the server
    std::uint32_t numericIdentifier = 0;
    std::string stringIdentifier;
    UA_Guid guidIdentifier{};

  private:
    [[nodiscard]] std::string parseIdentifier(const std::string& part, bool& found);
};

}  // namespace PullappOpcUa
