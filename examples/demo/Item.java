// One thing on sale: a name and a price in cents.
package demo;

public class Item {
    private final String name;
    private final int price;

    public Item(String name, int price) {
        this.name = name;
        this.price = price;
    }

    public String getName() {
        return name;
    }

    public int getPrice() {
        return price;                                             // @item-price
    }

    @Override
    public String toString() {
        return name + " (" + price + " cents)";
    }
}
