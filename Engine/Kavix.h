#pragma once

/// The public header: what a program that embeds the dictionary includes. Everything else is internal to the library.

#include "core/data-store/dictionary/ComponentInfo.h" // the statistics tree
#include "core/data-store/dictionary/DatatypeIDs.h" // the datatypes
#include "core/data-store/dictionary/Literal.h" // a lexical form with its datatype; its outcome in a batch
#include "core/data-store/dictionary/Prefixes.h" // how Turtle abbreviates IRIs
#include "core/data-store/dictionary/ResourceValue.h" // a value in binary form
#include "core/data-store/embedding/Dictionary.h" // maps values to resource IDs and back; saves, opens, compacts
#include "core/data-store/embedding/Restoration.h" // rebuilds a dictionary under its earlier resource IDs
#include "core/data-store/embedding/Snapshot.h" // what was committed at a point in time
#include "core/data-store/embedding/Transaction.h" // enters values from many threads, visible all at once
#include "core/data-store/numbers/XSDDecimal.h" // an exact decimal
#include "core/data-store/repair/StoreRepair.h" // recovers what is recoverable of a damaged store
#include "core/platform/errors/SystemCallException.h" // system call errors; every error is a KavixException
#include "core/platform/stream/FileInputStream.h" // reads a file
#include "core/platform/stream/InputStream.h" // where stores are read from
#include "core/platform/stream/OutputStream.h" // where stores are written to
#include "core/platform/stream/ReplacingFile.h" // writes a file that atomically replaces another one
