const form = document.forms[0];
const findings = [...document.querySelectorAll("article")];

function filter() {
  const wanted = [...new FormData(form)].filter(([, value]) => value);
  for (const finding of findings)
    finding.hidden = wanted.some(([name, value]) => finding.dataset[name] !== value);
  for (const page of document.querySelectorAll("section"))
    page.hidden = !page.querySelector("article:not([hidden])");
  const shown = findings.filter((finding) => !finding.hidden);
  form.elements.shown.value = `${shown.length} of ${findings.length} shown`;
  // The address can be sent to whoever should see the same findings.
  history.replaceState(null, "", `#${new URLSearchParams(wanted)}`);
}

form.addEventListener("input", filter);
form.addEventListener("reset", () => setTimeout(filter));
const asked = new URLSearchParams(location.hash.slice(1));
for (const option of form.querySelectorAll("option"))
  option.selected = option.value === (asked.get(option.parentElement.name) ?? "");
filter();
