#pragma once

#include "python/object.h"

namespace citation_check {

// Every name and fixed text that C++ hands to the interpreter: a line each.
struct Names {
    // names in the module's namespace
    py::Ref CITATION_QUESTION_VERSION = py::interned("CITATION_QUESTION_VERSION");
    py::Ref CITATION_RE = py::interned("_CITATION_RE");
    py::Ref CLAIM_MIN_CHARS = py::interned("_CLAIM_MIN_CHARS");
    py::Ref CheckedClaim = py::interned("CheckedClaim");
    py::Ref CitationCheck = py::interned("CitationCheck");
    py::Ref CitationChecker = py::interned("CitationChecker");
    py::Ref CitedClaim = py::interned("CitedClaim");
    py::Ref DETAIL_CLAIM_CHARS = py::interned("_DETAIL_CLAIM_CHARS");
    py::Ref FAILURE_CHARS = py::interned("_FAILURE_CHARS");
    py::Ref FENCE_RE = py::interned("_FENCE_RE");
    py::Ref LIST_MARK_RE = py::interned("_LIST_MARK_RE");
    py::Ref PASSAGE_CHARS = py::interned("_PASSAGE_CHARS");
    py::Ref Path = py::interned("Path");
    py::Ref SENTENCE_END_RE = py::interned("_SENTENCE_END_RE");
    py::Ref ThreadPoolExecutor = py::interned("ThreadPoolExecutor");
    py::Ref VERDICT_FINDINGS = py::interned("_VERDICT_FINDINGS");
    py::Ref check_citations = py::interned("check_citations");
    py::Ref citation_answer = py::interned("citation_answer");
    py::Ref citation_key = py::interned("citation_key");
    py::Ref citation_request = py::interned("citation_request");
    py::Ref cited_claims = py::interned("cited_claims");
    py::Ref cited_lines = py::interned("cited_lines");
    py::Ref claim_text = py::interned("_claim_text");
    py::Ref dataclass = py::interned("dataclass");
    py::Ref logger = py::interned("logger");
    py::Ref norm = py::interned("_norm");
    py::Ref prose_blocks = py::interned("_prose_blocks");
    py::Ref re = py::interned("re");
    py::Ref source_consented = py::interned("source_consented");
    py::Ref threading = py::interned("threading");

    // attributes, methods and keywords
    py::Ref Lock = py::interned("Lock");
    py::Ref abspath = py::interned("abspath");
    py::Ref answer = py::interned("answer");
    py::Ref budget = py::interned("budget");
    py::Ref check = py::interned("check");
    py::Ref checked = py::interned("checked");
    py::Ref citation_checker = py::interned("_citation_checker");
    py::Ref claim = py::interned("claim");
    py::Ref client = py::interned("client");
    py::Ref compile_function = py::interned("_compile");
    py::Ref config = py::interned("config");
    py::Ref decide = py::interned("decide");
    py::Ref decision_client = py::interned("decision_client");
    py::Ref del_dunder = py::interned("__del__");
    py::Ref detail = py::interned("detail");
    py::Ref enabled = py::interned("enabled");
    py::Ref encoding = py::interned("encoding");
    py::Ref end = py::interned("end");
    py::Ref enter_dunder = py::interned("__enter__");
    py::Ref eq_dunder = py::interned("__eq__");
    py::Ref errors = py::interned("errors");
    py::Ref exc_info = py::interned("exc_info");
    py::Ref exit_dunder = py::interned("__exit__");
    py::Ref failed = py::interned("_failed");
    py::Ref failure = py::interned("failure");
    py::Ref feature_enabled = py::interned("feature_enabled");
    py::Ref findings = py::interned("findings");
    py::Ref finditer = py::interned("finditer");
    py::Ref flags = py::interned("flags");
    py::Ref fspath = py::interned("fspath");
    py::Ref fspath_dunder = py::interned("__fspath__");
    py::Ref get = py::interned("get");
    py::Ref getattribute_dunder = py::interned("__getattribute__");
    py::Ref init_dunder = py::interned("__init__");
    py::Ref io = py::interned("io");
    py::Ref is_relative_to = py::interned("is_relative_to");
    py::Ref is_set = py::interned("is_set");
    py::Ref items = py::interned("items");
    py::Ref joinrealpath = py::interned("_joinrealpath");
    py::Ref kind = py::interned("kind");
    py::Ref lock = py::interned("_lock");
    py::Ref lstat = py::interned("lstat");
    py::Ref stat = py::interned("stat");
    py::Ref make_child = py::interned("_make_child");
    py::Ref map = py::interned("map");
    py::Ref match = py::interned("match");
    py::Ref max_parallel_calls = py::interned("max_parallel_calls");
    py::Ref max_questions = py::interned("max_questions");
    py::Ref max_workers = py::interned("max_workers");
    py::Ref name_dunder = py::interned("__name__");
    py::Ref new_budget = py::interned("new_budget");
    py::Ref new_dunder = py::interned("__new__");
    py::Ref open = py::interned("open");
    py::Ref os = py::interned("os");
    py::Ref pages = py::interned("pages");
    py::Ref passage = py::interned("passage");
    py::Ref path = py::interned("path");
    py::Ref pattern = py::interned("pattern");
    py::Ref question_version = py::interned("question_version");
    py::Ref read = py::interned("_read");
    py::Ref read_text = py::interned("read_text");
    py::Ref readlink = py::interned("readlink");
    py::Ref realpath = py::interned("realpath");
    py::Ref ref = py::interned("ref");
    py::Ref relative_to = py::interned("relative_to");
    py::Ref repo_root = py::interned("repo_root");
    py::Ref resolve = py::interned("resolve");
    py::Ref root = py::interned("root");
    py::Ref scanner = py::interned("scanner");
    py::Ref search = py::interned("search");
    py::Ref set = py::interned("set");
    py::Ref severity = py::interned("severity");
    py::Ref should_stop = py::interned("should_stop");
    py::Ref skipped = py::interned("skipped");
    py::Ref span = py::interned("span");
    py::Ref split = py::interned("split");
    py::Ref splitlines = py::interned("splitlines");
    py::Ref start = py::interned("start");
    py::Ref startswith = py::interned("startswith");
    py::Ref str_dunder = py::interned("__str__");
    py::Ref strip = py::interned("strip");
    py::Ref sub = py::interned("sub");
    py::Ref text_encoding = py::interned("text_encoding");
    py::Ref texts = py::interned("_texts");
    py::Ref thread_name_prefix = py::interned("thread_name_prefix");
    py::Ref truediv_dunder = py::interned("__truediv__");
    py::Ref verdict = py::interned("verdict");
    py::Ref warning = py::interned("warning");
    py::Ref wiki_check_citations_per_page = py::interned("wiki_check_citations_per_page");

    // texts
    py::Ref bar = py::interned("|");
    py::Ref bracket = py::interned("[");
    py::Ref citation_check_failed = py::interned("citation-check-failed");
    py::Ref citation_check_skipped = py::interned("citation-check-skipped");
    py::Ref closing_bracket = py::interned("]");
    py::Ref closing_quote = py::interned("\"");
    py::Ref colon = py::interned(": ");
    py::Ref empty = py::interned("");
    py::Ref first_group = py::interned("\\1");
    py::Ref first_line = py::interned(":L");
    py::Ref greater = py::interned(">");
    py::Ref hash_sign = py::interned("#");
    py::Ref last_line = py::interned("-L");
    py::Ref line_feed = py::interned("\n");
    py::Ref low = py::interned("low");
    py::Ref quotation = py::interned(": \"");
    py::Ref replace = py::interned("replace");
    py::Ref space = py::interned(" ");
    py::Ref space_before_mark = py::interned("\\s+([.,;:!?])");
    py::Ref space_run = py::interned("\\s{2,}");
    py::Ref supports = py::interned("supports");
    py::Ref utf_8 = py::interned("utf-8");
    py::Ref wiki_check_citations = py::interned("wiki_check_citations");
    py::Ref wiki_cite = py::interned("wiki-cite");
};

}  // namespace citation_check
