#pragma once

namespace kavix::numdict {

// What help prints after the options.

inline constexpr char PROGRAM_HELP[] = R"(
Exit codes: 0 success; 1 literals were rejected, files are damaged or a look-up found nothing; 2 usage error;
3 a limit was reached (memory budget, resource IDs); 4 the system or the program failed, or a store cannot be opened.

Try
  numdict import data.ttl more.nt.gz             import files and print what was found
  numdict import data.ttl --store numbers.store  keep the values in a store
  numdict resolve numbers.store 5 '"5"^^xsd:int' find their IDs
  numdict dump numbers.store                     print everything
  numdict bench data.nt                          how fast this machine is
  numdict parse 5 '"007"^^xsd:int'               how literals are understood
  numdict COMMAND --help                         more about a command, with examples)";

inline constexpr char IMPORT_HELP[] = R"(
Reads N-Triples (.nt), N-Quads (.nq), Turtle (.ttl) and TriG (.trig), also gzip-compressed. Damaged lines of N-Triples
and N-Quads are skipped; a damaged Turtle or TriG file is read up to its first error. Literals that cannot be imported
are counted and shown, and do not stop the import. With --store the good ones are stored as one transaction: after a
limit or a failure (exit codes 3 and 4), and when --strict stopped the import, the store is unchanged.

Examples
  numdict import *.ttl dump.nq.gz --memory 8G
  curl -s https://example.org/data.nt.gz | numdict import - --format nt
  numdict import data.ttl --rejected rejected.nq    then correct rejected.nq and import it as well
  numdict import data.ttl --rejected - 2> report.txt | less
  numdict import *.nt.gz --store numbers.store      again with other files: the store is extended
  numdict import data.ttl --resolve 5 '"5"^^xsd:int' --get 1 2 3
  numdict import data.nt --json --quiet > report.json)";

inline constexpr char BENCH_HELP[] = R"(
The files are read once to keep their values, and then, for each number of threads: read by the parser alone, which is
the limit of any import; imported; their values inserted into an empty dictionary and looked up in it, one at a time and
in batches of 1024. All of this is done once to warm up and then --repetitions times, in turns. Nothing is written.

import/reading is how many times as long an import takes as the parser alone: 1.10 means that the parser takes 91% of
the time, and that little but a faster parser would help. Run it on an otherwise idle machine, and measure files that
take at least a second; the last line shows the spread of the runs. Values that do not fit in half of --memory (56
bytes each) are imported, but not kept. Files that cannot be read to their end are left out (exit code 1).

Examples
  numdict bench *.nt.gz
  numdict bench data.ttl --threads 1,8 --repetitions 11 --json > bench.json
  numdict generate --literals 5M -o sample.nt && numdict bench sample.nt --no-huge-pages)";

inline constexpr char EQUAL_HELP[] = R"(
Examples
  numdict equal 5                                 5.0, "5"^^xsd:int, "5.0E0"^^xsd:double, ...
  numdict equal '"0.5"^^xsd:decimal')";

inline constexpr char PARSE_HELP[] = R"(
A literal is written as in Turtle: 5, -0.5, "5"^^xsd:int, "5"^^<http://www.w3.org/2001/XMLSchema#int>. Quote it for the
shell. Put literals that start with "-." after "--".

Examples
  numdict parse 5 -0.50 '"+007"^^xsd:short' -- -.5
  numdict parse --json --file literals.txt
  printf '5\n"x"^^xsd:int\n' | numdict parse --file -)";

inline constexpr char GENERATE_HELP[] = R"(
The same number and seed give the same bytes on every machine: prices, ratings, years, 13-digit identifiers, sensor
readings and counts, of which a few are frequent and most are rare.

Examples
  numdict generate --literals 1M -o sample.nt
  numdict generate --literals 100M --seed 7 | numdict import - --format nt)";

inline constexpr char RESOLVE_HELP[] = R"(
A literal is written as in Turtle: 5, -0.5, "5"^^xsd:int, "5"^^<http://www.w3.org/2001/XMLSchema#int>. Quote it for the
shell. Put literals that start with "-." after "--". Prints one line per literal: ID, datatype, literal, or "-" and what
is wrong. Exit code 1: not all are in the store.

Examples
  numdict resolve numbers.store 5 '"5"^^xsd:int'
  numdict resolve numbers.store --json 5 -- -.5
  numdict resolve numbers.store --file literals.txt | cut -f1)";

inline constexpr char GET_HELP[] = R"(
Prints one line per ID: ID, datatype, literal. Exit code 1: not all are in the store.

Examples
  numdict get numbers.store 1 2 3
  seq 100 | numdict get numbers.store --file - --json)";

inline constexpr char DUMP_HELP[] = R"(
Prints one line per value, in the order of the IDs. 'numdict restore' reads text, csv and jsonl back. In text the
columns are separated by tabs, and aligned on a terminal.

Examples
  numdict dump numbers.store | head
  numdict dump numbers.store --format jsonl | gzip > numbers.jsonl.gz
  numdict dump numbers.store --format ntriples -o numbers.nt)";

inline constexpr char RESTORE_HELP[] = R"(
Reads text, CSV and JSON lines, also gzip-compressed, and makes a store in which every value has the ID that it had. The
format is detected per line. If a record is malformed or contradicts another one, it is shown with its line, and nothing
is written (exit code 1). A file is read twice, the first time to find malformed records; standard input is read once.

Examples
  numdict restore numbers.jsonl.gz -o numbers.store
  numdict dump narrow.store | numdict restore - -o wide.store --id-width 64)";

inline constexpr char COMPACT_HELP[] = R"(
Drops values, numbers the others densely from 1 in their old order, and makes the file small. Without --keep and --drop
it drops no value, only what was rolled back and the IDs that were never used. FILE lists one resource ID or Turtle
literal per line; digits alone are an ID, so the xsd:integer 5 is written "5"^^xsd:integer. Lines that name nothing in
the store are shown, and make the exit code 1; the store is compacted all the same. If a line cannot be understood,
nothing is written. Use --map if resource IDs are stored elsewhere: it lists old and new IDs separated by a tab.

Examples
  numdict compact numbers.store
  numdict compact numbers.store --drop obsolete.txt --map renumbered.tsv
  numdict compact numbers.store --keep used.txt -o small.store)";

inline constexpr char STATS_HELP[] = R"(
Live buckets hold values; deleted ones held values that were rolled back; reserved ones wait for values. The load is the
share of buckets that are one of these. A probe length is the number of buckets read to find a value. Memory is that of
the table; in the last row it is all that is charged to the budget. bytes/value: the table, the arrays and the records.
On huge pages: what the system granted of the memory that asked for them. A huge page is 2 MiB and is counted in full,
so a store of a few values may be on 6 MiB of them, though it is charged less.

Examples
  numdict stats numbers.store
  numdict stats numbers.store --json | jq '.datatypes["xsd:int"].load')";

inline constexpr char CHECK_HELP[] = R"(
Verifies the header, all checksums, and every value: that its ID, its table and its record agree, that probing finds it,
and that it is stored once. All problems are found, not only the first, and the first 20 are listed. Exit code 1: there
are problems.

With --repair the values that are certain go to a new store, under the same IDs: from the arrays if their checksums are
right, else from the tables if theirs are, else where both agree. What is not saved is listed. Exit code 0: everything
was saved. The damaged store stays. A decimal is kept in the data pool alone: if that is damaged, no decimal is certain,
and none is saved, unless --unconfirmed saves those that fit the tables; then a wrong digit may go unnoticed.

Examples
  numdict check numbers.store
  numdict check numbers.store --repair -o repaired.store --all > report.txt)";

inline constexpr char DIFF_HELP[] = R"(
Prints one line per difference: its kind, the ID in the first store, the ID in the second, the literal. "<" is a value
only in the first, ">" one only in the second, "!" one with another ID. Exit code 0: no difference; 1: there are some.

Examples
  numdict diff yesterday.store today.store
  numdict diff a.store b.store --quiet > /dev/null && echo the same)";

}
