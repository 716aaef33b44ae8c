package com.shop;

public record Item(String name, int price) {}
