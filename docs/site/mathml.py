"""Formulas as MathML, which browsers set by themselves: no script, no font and no TeX."""
from docutils import nodes
from docutils.utils.math.latex2mathml import tex2mathml
from sphinx.util import logging


def _mathml(translator, node, inline):
    try:
        translator.body.append(tex2mathml(node.astext(), inline=inline))
    except SyntaxError as failure:
        logging.getLogger(__name__).warning("formula: %s: %s", failure, node.astext(), location=node)
    raise nodes.SkipNode


def _visit_inline(translator, node):
    _mathml(translator, node, True)


def _visit_display(translator, node):
    translator.body.append(translator.starttag(node, "div", CLASS="math"))
    try:
        _mathml(translator, node, False)
    finally:
        translator.body.append("</div>\n")


def setup(app):
    app.add_html_math_renderer("mathml", (_visit_inline, None), (_visit_display, None))
    return {"parallel_read_safe": True, "parallel_write_safe": True}
