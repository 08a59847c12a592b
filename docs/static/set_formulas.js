// KaTeX replaces each formula by its typeset form. A formula with an error stays as source text, in red.
for (const formula of document.querySelectorAll(".math")) {
    katex.render(formula.textContent, formula, {displayMode: formula.matches("div"), throwOnError: false});
}
