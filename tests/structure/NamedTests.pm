# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
#
# The test programs and their functions, for documents that say which tests hold what.

package NamedTests;

use strict;
use warnings;
use Exporter 'import';

our @EXPORT = qw(slurp functions named);

sub slurp {
    open(my $file, '<', $_[0]) or die "$_[0]: $!\n";
    local $/;
    return <$file>;
}

# The functions of every test program: program -> function -> body.
sub functions {
    my %found;
    for my $path (glob('tests/*/tst_*.cpp')) {
        my ($program) = $path =~ m{/(tst_\w+)\.cpp$};
        my $source = slurp($path);
        while ($source =~ /^void tst_\w+::(\w+)\(\)\n\{\n(.*?)^\}/msg) {
            $found{$program}{$1} = $2;
        }
        while ($source =~ /^    void (\w+)\(\) \{ (.*) \}$/mg) {
            $found{$program}{$1} = $2;
        }
    }
    return %found;
}

# The tests that a text such as "tst_one: first, second; tst_two: third" names, as pairs of program and
# function. What is none of that goes to the given complaint.
sub named {
    my ($text, $complain) = @_;
    my @tests;
    for my $group (split /;/, $text) {
        my ($program, $list) = $group =~ /^\s*(tst_\w+):\s*(\w.*?)\s*$/s;
        $complain->("not a program and its functions: $group") if !defined $program;
        next if !defined $program;
        push @tests, map { [$program, $_] } split /,\s*/, $list;
    }
    return @tests;
}

1;
