#pragma once

#include <vector>

#include "python/call.h"
#include "python/module.h"

// Every host collaborator as one named call. Each is read from the module's namespace, or from the client, at the
// moment of the call, may run any Python code, and lets through whatever the host raises.
namespace citation_check::host {

using py::Borrowed;
using py::Module;
using py::Ref;

// Whether a raw line of a page opens or closes a fenced code block.
bool is_fence(Module& module, Borrowed line);

// All citations of a sentence, as match objects, left to right.
struct Citations {
    Ref pattern;
    bool standard = false;  // a standard pattern on an exact str, so that nobody sees how the citations were found
    std::vector<Ref> matches;
};
// Puts them in the place of what `found` held.
void find_citations(Module& module, Borrowed sentence, Citations& found);

// The sentence with every citation removed.
Ref without_citations(Module& module, Borrowed sentence);

struct CitationKey {
    Ref path;
    Ref start;
    Ref end;
};

// What a citation's match cites; ValueError when the host does not give three values.
CitationKey citation_key(Module& module, Borrowed match);

// The host's normal form of a cited path.
Ref normal_path(Module& module, Borrowed path);

// Whether the switch of the citation check is on.
bool switched_on(Module& module, Borrowed client);

// Whether the user has consented to uploading the cited source lines.
bool consented(Module& module, Borrowed client);

// The batch budget of one run, which `should_stop` (a callable or None, never called here) ends.
Ref new_budget(Module& module, Borrowed client, Borrowed should_stop);

// The per-page cap, as the configuration has it now.
Ref questions_per_page(Module& module, Borrowed client);

// The bound on a page's worker threads, converted as `int()` converts.
Ref parallel_calls(Module& module, Borrowed client);

struct Request {
    Ref state;
    Ref questions;
};

// The question about the text of a claim (a record) and the lines that it cites.
Request citation_request(Module& module, Borrowed claim, Borrowed passage);

// The decision model's result for a request; `budget` may be None.
Ref decide(Module& module, Borrowed client, const Request& request, Borrowed budget);

// The answer that a result gives, or None.
Ref citation_answer(Module& module, Borrowed result);

}  // namespace citation_check::host
