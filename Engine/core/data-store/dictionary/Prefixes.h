#pragma once

#include "core/platform/stream/OutputStream.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kavix {

/// A table of prefixes for abbreviating IRIs as Turtle does. Reading is thread-safe; adding requires exclusive use of
/// the table.
class Prefixes {

public:

    /// The shared table of rdf, rdfs, owl and xsd.
    static const Prefixes s_defaultPrefixes;

    /// An empty table.
    Prefixes() = default;

    /// Adds a prefix, or gives it another namespace. Of prefixes with the same namespace the first one added is used.
    /// @param name          without the colon; may be empty
    /// @throws KavixException  name is not a valid Turtle prefix: the table is unchanged
    void addPrefix(std::string_view name, std::string_view namespaceIRI);

    /// Appends an IRI as Turtle writes it: a prefixed name if a namespace, the longest first, leaves a local name that
    /// Turtle allows unescaped (or an empty one), otherwise the full IRI in angle brackets with escapes where needed. A
    /// local name that is not UTF-8 is not abbreviated; the bytes of such an IRI are written unchanged.
    void encodeIRI(const char* iri, size_t length, std::string& text) const;

    /// Writes what the other operation appends, in several pieces and without allocating.
    void encodeIRI(const char* iri, size_t length, OutputStream& output) const;

private:

    struct Prefix {
        std::string m_name;
        std::string m_namespaceIRI;
    };

    /// The prefix that abbreviates the IRI best; null if none does.
    const Prefix* findPrefix(std::string_view iri) const noexcept;

    template<typename Write>
    void encode(std::string_view iri, const Write& write) const;

    std::vector<Prefix> m_prefixes; // longest namespace first
};

}
