# The bag part of the sample tree: scripts/sample_tree_bags.cmd (given by
# .args) builds its two bags with the sample schemas; this file is not run.
/
