// Ownership and construction tags of the utility layer.
//
// A tag passed as the first argument marks what a call does with a pointer:
// `utPtrClaim` hands ownership to the callee, `utPtrExtern` lets the callee
// keep a pointer it does not own, `utPtrRelease` hands ownership of the result
// back to the caller. `utCopy` selects copying construction.
#pragma once

enum utPtrClaimTag { utPtrClaim };
enum utPtrExternTag { utPtrExtern };
enum utPtrReleaseTag { utPtrRelease };
enum utCopyTag { utCopy };

// A boolean of a persistent class is stored as an int, so that it has the
// width of the store's integer type.
typedef int utBool;
