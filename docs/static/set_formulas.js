// KaTeX replaces each formula by its typeset form. A formula with an error stays as source text, in red.
for (const formula of document.querySelectorAll(".math")) {
    katex.render(formula.textContent, formula, {displayMode: formula.matches("div"), throwOnError: false});

    // Punctuation after a formula stays on its line.
    const following = formula.nextSibling;
    const punctuation = following instanceof Text ? following.data.match(/^[.,;:?!)]+/) : null;
    if (punctuation) {
        following.splitText(punctuation[0].length);
        const unbroken = document.createElement("span");
        unbroken.style.whiteSpace = "nowrap";
        formula.before(unbroken);
        unbroken.append(formula, following);
    }
}
