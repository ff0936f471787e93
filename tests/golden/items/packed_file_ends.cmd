# A command file that ends before all packed values are read ends the
# console with status 0.
/
create p packed dd
1
