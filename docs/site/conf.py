"""How Sphinx makes the site. script/docs runs it on the pages that pages.py has made ready."""
import os
import re
import sys
from pathlib import Path

from sphinx.ext.napoleon.docstring import GoogleDocstring

here = Path(__file__).resolve().parent
sys.path.insert(0, str(here))
top = here.parent.parent

project = "Tarnwick Filters"
version = release = re.search(r"project\(TarnwickFilters VERSION ([\d.]+)", (top / "CMakeLists.txt").read_text())[1]
copyright = author = "the Tarnwick Filters authors"
language = "en_GB"

extensions = ["myst_parser", "breathe", "sphinx.ext.autodoc", "sphinx.ext.napoleon", "mathml"]
myst_enable_extensions = ["dollarmath"]
myst_heading_anchors = 4
suppress_warnings = ["myst.header"]  # a document may begin its sections at the third level: tables that the program prints
exclude_patterns = ["keys/*"]        # included by others
# What C++ names is nowhere declared in these pages where it is the standard library's, a namespace, or only declared forward.
nitpick_ignore_regex = [("cpp:identifier", ".*"), ("py:class", "ndarray|float64|shape|n")]

# Doxygen's XML, made by script/docs.
breathe_projects = {"tarnwick": os.environ["TARNWICK_DOXYGEN"]}
breathe_default_project = "tarnwick"
breathe_show_include = False

autodoc_member_order = "bysource"
autodoc_typehints = "none"  # signatures of the package are generated, docstrings carry the types
napoleon_google_docstring = False
napoleon_use_rtype = False
napoleon_use_param = False
# A property's docstring is its description; napoleon would take what stands in front of a colon for a type.
GoogleDocstring._consume_inline_attribute = lambda self: ("", self._consume_to_end())
python_use_unqualified_type_names = True
add_module_names = False

html_theme = "sphinx_rtd_theme"
html_theme_options = {"navigation_depth": 3, "collapse_navigation": True, "titles_only": True}
# Formulas need a font that knows how to set them, which few systems have.
html_static_path = [str(here / "site.css"), "/usr/share/fonts/truetype/dejavu/DejaVuMathTeXGyre.ttf"]
html_css_files = ["site.css"]
html_title = f"Tarnwick Filters {release}"
html_show_copyright = False
html_show_sphinx = False
html_show_sourcelink = False
html_copy_source = False
html_last_updated_fmt = None   # the same sources give the same pages
html_show_search_summary = False  # a summary is fetched, which browsers refuse to pages that were opened as files
html_math_renderer = "mathml"
pygments_style = "friendly"
