#pragma once

#include <array>
#include <vector>

#include "python/text.h"
#include "state.h"

// Every host collaborator as one named call. Each is read from the module's namespace, or from the client, at the
// moment of the call, may run any Python code, and lets through whatever the host raises.
namespace citation_check::host {

using py::Borrowed;
using py::Ref;

// Whether a raw line of a page opens or closes a fenced code block.
bool is_fence(State& state, Borrowed line);

// All citations of a sentence.
struct Citations {
    Ref list;                  // what keeps them when they are not a standard pattern's; may be empty
    std::vector<Ref> matches;  // left to right
    // Whether a standard pattern found them in a plain text, of which `spans` has their places.
    bool standard = false;
    std::vector<py::text::Span> spans;
};
// Puts them in the place of what `found` held.
void find_citations(State& state, Borrowed sentence, Citations& found);

// The sentence with every citation removed.
Ref without_citations(State& state, Borrowed sentence);

// The path, the first and the last line that a citation's match cites; ValueError when the host does not give three
// values.
std::array<Ref, 3> citation_key(State& state, Borrowed match);

// The host's normal form of a cited path.
Ref normal_path(State& state, Borrowed path);

// Whether the switch of the citation check is on.
bool switched_on(State& state, Borrowed client);

// Whether the user has consented to uploading the cited source lines.
bool consented(State& state, Borrowed client);

// The batch budget of one run, which `should_stop` (a callable or None, never called here) ends.
Ref new_budget(State& state, Borrowed client, Borrowed should_stop);

// The per-page cap, as the configuration has it now.
Ref questions_per_page(State& state, Borrowed client);

// The bound on a page's worker threads, converted as `int()` converts.
Ref parallel_calls(State& state, Borrowed client);

// The question about the text of a claim (a record) and the lines that it cites: what it is about, and the questions.
std::array<Ref, 2> citation_request(State& state, Borrowed claim, Borrowed passage);

// The decision model's result for a request; `budget` may be None.
Ref decide(State& state, Borrowed client, const std::array<Ref, 2>& request, Borrowed budget);

// The answer that a result gives, or None.
Ref citation_answer(State& state, Borrowed result);

}  // namespace citation_check::host
