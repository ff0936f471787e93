# header
/

# comment
 #not a comment
   
Quit extra words
bogus
