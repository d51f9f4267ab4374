#pragma once

/// The front door: what a program that embeds the dictionary includes. Everything else is the library's own.

#include "core/data-store/dictionary/ComponentInfo.h" // the statistics tree
#include "core/data-store/dictionary/DatatypeIDs.h" // the datatypes
#include "core/data-store/dictionary/Literal.h" // a lexical form with its datatype; what became of it in a batch
#include "core/data-store/dictionary/Prefixes.h" // how Turtle abbreviates IRIs
#include "core/data-store/dictionary/ResourceValue.h" // a value in binary form
#include "core/data-store/embedding/Dictionary.h" // gives values resource IDs and returns them; saves, opens, compacts
#include "core/data-store/embedding/Restoration.h" // rebuilds a dictionary under the resource IDs that it had
#include "core/data-store/embedding/Snapshot.h" // what was committed at one moment
#include "core/data-store/embedding/Transaction.h" // enters values from many threads, visible all at once
#include "core/data-store/numbers/XSDDecimal.h" // an exact decimal
#include "core/data-store/repair/StoreRepair.h" // saves what can be saved of a damaged store
#include "core/platform/errors/SystemCallException.h" // every failure: KavixException, and this for system calls
#include "core/platform/stream/FileInputStream.h" // a file that is read
#include "core/platform/stream/ReplacingFile.h" // a file that takes the place of another one when it is complete
