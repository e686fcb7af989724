-- The grammar of JSON (RFC 4627), as JsonParser reads it.
--
-- qlalr turns this file into jsongrammar_p.h and jsongrammar.cpp. After a change here run
--     qlalr --no-lines jsongrammar.g
-- in this folder and commit all three files; never edit the generated two by hand.
--
-- The order of everything below is fixed by its users. The tokens are numbered from 1 in the order of
-- their lines (0 is the end of the text), and those numbers are what JsonLexer::lex() returns. The
-- productions are numbered from 0 in the order of their lines, and those numbers are the cases of
-- JsonParser::runAction(). Add at the end, and look at both when anything moves.

%parser JsonGrammar

-- A token's second name is how an error message spells it.
%token T_STRING "string"
%token T_NUMBER "number"
%token T_LEFT_BRACE "{"
%token T_RIGHT_BRACE "}"
%token T_LEFT_BRACKET "["
%token T_RIGHT_BRACKET "]"
%token T_COLON ":"
%token T_COMMA ","
%token T_FALSE "false"
%token T_TRUE "true"
%token T_NULL "null"
%token T_ERROR "error"

%start Root

-- Members and Values may be empty, and an empty one may be followed by a comma: so {,"a":1} and [,1]
-- are read, while {"a":1,} and [1,] are errors. This leniency is meant (tst_jsonparser).

Root ::= Value ;

Object ::= T_LEFT_BRACE Members T_RIGHT_BRACE ;

Members ::= T_STRING T_COLON Value ;
Members ::= Members T_COMMA T_STRING T_COLON Value ;
Members ::= ;

Value ::= T_FALSE ;
Value ::= T_TRUE ;
Value ::= T_NULL ;
Value ::= Object ;
Value ::= Array ;
Value ::= T_NUMBER ;
Value ::= T_STRING ;

Array ::= T_LEFT_BRACKET Values T_RIGHT_BRACKET ;

Values ::= Value ;
Values ::= Values T_COMMA Value ;
Values ::= ;
