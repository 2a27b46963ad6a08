// The sample application: a product-annotation model in three schemas of its
// own ("annotation" 16, "gdandtol" 6, "vornetinput" 9), a reproducible
// document generator and a deep equality that also compares the shape of
// sharing. Tests, benchmarks and demos build on it.
//
//   sample_force_load();
//   annDocument* doc = sample_make_document(1000, 42);
//   annDocument* again = sample_make_document(1000, 42);
//   std::string why;
//   bool same = sample_equal(*doc, *again, &why);   // true
//   delete doc;                                     // frees everything
//   delete again;
#pragma once

#include "annotation.h"
#include "gdandtol.h"
#include "vornetinput.h"

#include <map>
#include <string>

// Registers every class of the three schemas, including the mapper classes
// (annItemListMapper and the generated transform mapper), and makes the two
// mappers.
void sample_force_load();

// A document of about n_items named items spread over a few sheets, built
// only from the seed: the same seed gives the same document on any
// platform. See generator.cpp for its shape.
annDocument* sample_make_document(int n_items, unsigned seed);

// Deleting the root frees the whole document; this is the same, spelled out
// for callers that prefer a function.
void sample_delete_document(annDocument* document);

// Field by field, following pointers, and with the same shape of sharing:
// objects of a and of b must correspond one to one. Doubles compare bit for
// bit and null strings differ from empty ones. On a difference, `why` (if
// given) receives the path to it and what differs.
bool sample_equal(annDocument const& a, annDocument const& b, std::string* why = nullptr);

// The number of objects of each persistent class reachable from the document
// (embedded objects and array elements included; an object shared by several
// pointers counts once), by class name.
std::map<std::string, long> sample_census(annDocument const& document);
